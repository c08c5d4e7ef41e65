#pragma once

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace apps::kxvfs {

/// Standard output cannot be written; with EPIPE, nobody reads it any more.
class OutputError : public std::system_error {
public:
    explicit OutputError(int error);
};

/// Standard output, buffered. Threads: one at a time.
class Output {
public:
    /// `json`: gather one JSON array instead of text.
    explicit Output(bool json);

    bool isJson() const { return m_json; }

    /// Errors here and below: OutputError.
    void bytes(const char* data, std::size_t count);
    void line(std::string_view text);
    /// A name as it is shown: escaped on a terminal, bytes as they are otherwise.
    std::string name(std::string_view text) const;
    /// The name of a folder, coloured where wanted.
    std::string folderName(std::string_view text) const;

    /// Adds an object to the JSON array.
    void object(const nlohmann::ordered_json& value);
    /// Ends the JSON array and writes all out.
    void finish();

private:
    const bool m_json;
    const bool m_terminal;
    const bool m_colour;
    bool m_first = true;
};

} // namespace apps::kxvfs
