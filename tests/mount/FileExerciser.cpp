#include "FileExerciser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::test {

namespace {

constexpr std::uint64_t longest = 256 * 1024;
constexpr std::uint64_t longestPiece = 32 * 1024;

} // namespace

FileExerciser::FileExerciser(std::filesystem::path file, std::uint32_t seed,
                             std::function<std::string(const std::string&)> stored)
    : m_file(std::move(file)), m_random(seed), m_stored(std::move(stored)) {}

FileExerciser::~FileExerciser() {
    if (m_descriptor >= 0)
        close(m_descriptor);
}

std::string FileExerciser::run(int operations) {
    m_descriptor = open(m_file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(m_descriptor >= 0, "open");
    for (m_step = 0; m_step < operations && m_failure.empty(); ++m_step)
        step();
    if (m_failure.empty())
        reopen();
    check(close(m_descriptor) == 0, "last close");
    m_descriptor = -1;
    return m_failure;
}

void FileExerciser::step() {
    switch (const auto choice = upTo(999); choice / 10) {
    case 0:
        // One in a hundred, and saves a tenth of that: each rebuilds the archive.
        choice == 0 ? save() : rename();
        break;
    case 1:
    case 2:
        reopen();
        break;
    default:
        if (choice < 250)
            read();
        else if (choice < 480)
            write();
        else if (choice < 530)
            append();
        else if (choice < 650)
            truncate();
        else if (choice < 800)
            mappedRead();
        else if (choice < 950)
            mappedWrite();
        else
            punch();
    }
    struct stat status {};
    check(fstat(m_descriptor, &status) == 0 && status.st_size == static_cast<off_t>(m_model.size()), "size");
}

void FileExerciser::read() {
    const auto offset = upTo(longest);
    std::string got(upTo(longestPiece), '?');
    const auto expected = offset < m_model.size() ? m_model.substr(offset, got.size()) : std::string();
    const auto count = pread(m_descriptor, got.data(), got.size(), static_cast<off_t>(offset));
    check(count == static_cast<ssize_t>(expected.size()), "bytes read");
    got.resize(expected.size());
    check(got == expected, "contents read");
}

void FileExerciser::write() {
    const auto piece = text(upTo(longestPiece));
    const auto offset = upTo(longest - piece.size());
    const auto count = pwrite(m_descriptor, piece.data(), piece.size(), static_cast<off_t>(offset));
    check(count == static_cast<ssize_t>(piece.size()), "write");
    if (piece.empty())
        return;
    m_model.resize(std::max(m_model.size(), offset + piece.size()));
    m_model.replace(offset, piece.size(), piece);
}

void FileExerciser::append() {
    const auto piece = text(std::min(upTo(longestPiece), longest - m_model.size()));
    const int appending = open(m_file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    check(appending >= 0, "open to append");
    check(::write(appending, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()), "append");
    check(close(appending) == 0, "close");
    m_model += piece;
}

void FileExerciser::truncate() {
    const auto size = upTo(longest);
    const bool byPath = upTo(1) == 0;
    const int result = byPath ? ::truncate(m_file.c_str(), static_cast<off_t>(size))
                              : ftruncate(m_descriptor, static_cast<off_t>(size));
    check(result == 0, "truncate");
    m_model.resize(size);
}

void FileExerciser::mappedRead() {
    if (m_model.empty())
        return;
    auto* const bytes = mmap(nullptr, m_model.size(), PROT_READ, MAP_SHARED, m_descriptor, 0);
    check(bytes != MAP_FAILED, "map");
    if (bytes == MAP_FAILED)
        return;
    const auto offset = upTo(m_model.size() - 1);
    const auto count = std::min<std::uint64_t>(upTo(longestPiece), m_model.size() - offset);
    check(std::memcmp(static_cast<char*>(bytes) + offset, m_model.data() + offset, count) == 0,
          "mapped contents");
    munmap(bytes, m_model.size());
}

void FileExerciser::mappedWrite() {
    if (m_model.empty())
        return;
    auto* const bytes = mmap(nullptr, m_model.size(), PROT_READ | PROT_WRITE, MAP_SHARED, m_descriptor, 0);
    check(bytes != MAP_FAILED, "map");
    if (bytes == MAP_FAILED)
        return;
    const auto offset = upTo(m_model.size() - 1);
    const auto piece = text(std::min<std::uint64_t>(upTo(longestPiece), m_model.size() - offset));
    std::memcpy(static_cast<char*>(bytes) + offset, piece.data(), piece.size());
    m_model.replace(offset, piece.size(), piece);
    if (upTo(1) == 0)
        check(msync(bytes, m_model.size(), MS_ASYNC) == 0, "sync of the map");
    munmap(bytes, m_model.size());
}

void FileExerciser::punch() {
    const auto offset = upTo(longest);
    const auto count = upTo(longestPiece) + 1;
    check(fallocate(m_descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                    static_cast<off_t>(count)) == 0,
          "punch");
    for (auto at = offset; at < std::min<std::uint64_t>(offset + count, m_model.size()); ++at)
        m_model[at] = '\0';
}

void FileExerciser::reopen() {
    check(close(m_descriptor) == 0, "close");
    m_descriptor = open(m_file.c_str(), O_RDWR | O_CLOEXEC);
    check(m_descriptor >= 0, "reopen");
    std::string got(m_model.size() + 1, '?');
    const auto count = pread(m_descriptor, got.data(), got.size(), 0);
    got.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    check(got == m_model, "contents after reopening");
}

void FileExerciser::rename() {
    auto renamed = m_file;
    renamed.replace_filename("exercised-" + std::to_string(++m_renames % 5) + "-" + std::to_string(upTo(9)));
    check(::rename(m_file.c_str(), renamed.c_str()) == 0, "rename");
    m_file = renamed;
}

void FileExerciser::save() {
    check(fsync(m_descriptor) == 0, "fsync");
    check(m_stored(m_file.filename().string()) == m_model, "what the archive holds");
}

void FileExerciser::check(bool holds, const std::string& what) {
    if (!holds && m_failure.empty())
        m_failure = "step " + std::to_string(m_step) + ": " + what + " (" + std::strerror(errno) + ")";
}

std::uint64_t FileExerciser::upTo(std::uint64_t most) {
    return std::uniform_int_distribution<std::uint64_t>(0, most)(m_random);
}

std::string FileExerciser::text(std::size_t length) {
    std::string result(length, ' ');
    for (auto& c : result)
        c = static_cast<char>(m_random() & 0xffU);
    return result;
}

} // namespace kx::test
