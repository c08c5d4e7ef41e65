#pragma once

#include <foundation/storage/provider/ErrorCode.h>

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

namespace apps::kxvfs {

/// The command line cannot be understood: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An operation failed for a reason that the tool itself found. The text is the cause.
class CommandError : public std::runtime_error {
public:
    CommandError(foundation::storage::provider::ErrorCode code, const std::string& cause)
        : std::runtime_error(cause), m_code(code) {}
    foundation::storage::provider::ErrorCode code() const { return m_code; }

private:
    foundation::storage::provider::ErrorCode m_code;
};

/// A failure for people and for programs.
struct Failure {
    /// A lower-case clause.
    std::string cause;
    /// Absent for failures that no provider named.
    std::optional<foundation::storage::provider::ErrorCode> code;
    /// The place that the failure names, as IRI; empty where it names none.
    std::string place;
    /// What the cause says in other words, for those who look for the reason in a library's code; else empty.
    std::string detail = {};
};

Failure describe(const std::exception_ptr& error);

} // namespace apps::kxvfs
