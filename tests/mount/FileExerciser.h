#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

namespace kx::test {

/// Random reads, writes, truncations, mapped reads and writes, reopenings, renames and saves of one file,
/// each compared with a model in memory.
class FileExerciser {
public:
    /// `stored` returns what the archive on disk has under a name; looked at after each save.
    FileExerciser(std::filesystem::path file, std::uint32_t seed,
                  std::function<std::string(const std::string& name)> stored);
    ~FileExerciser();

    FileExerciser(const FileExerciser&) = delete;
    FileExerciser& operator=(const FileExerciser&) = delete;

    /// Returns what went wrong first; empty when nothing did.
    std::string run(int operations);
    const std::string& model() const { return m_model; }
    const std::filesystem::path& file() const { return m_file; }

private:
    void step();
    void read();
    void write();
    void append();
    void truncate();
    void mappedRead();
    void mappedWrite();
    void punch();
    void reopen();
    void rename();
    void save();
    void check(bool holds, const std::string& what);
    std::uint64_t upTo(std::uint64_t most);
    std::string text(std::size_t length);

    std::filesystem::path m_file;
    std::mt19937 m_random;
    const std::function<std::string(const std::string&)> m_stored;
    std::string m_model;
    int m_descriptor = -1;
    int m_step = 0;
    int m_renames = 0;
    std::string m_failure;
};

} // namespace kx::test
