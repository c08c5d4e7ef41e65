#pragma once

#include <exception>
#include <string>
#include <system_error>

namespace storage::mount {

/// Throws std::system_error for the number of a system error (ENOENT, …).
[[noreturn]] void failWith(int error);
[[noreturn]] void failWith(int error, const std::string& what);

/// The system error that a program is told of a failure; EIO where there is no better one.
int errorNumberOf(const std::exception_ptr& failure) noexcept;
/// A lower-case clause about it, for messages.
std::string causeOf(const std::exception_ptr& failure);

} // namespace storage::mount
