#pragma once

#include <foundation/core/SourceLocation.h>
#include <foundation/core/except/AnonymousInternalException.h>

#include <type_traits>
#include <utility>

namespace foundation::core::except {

/// Throws `exception` wrapped so that it is caught as its own type (and the bases of that) and as
/// IInternalException, also in another shared library.
///
///     throwInternal(EntryNotFoundException(path));
///
/// `location` is the place that IException::getSourceLocation tells, the caller's unless given.
template <typename T>
requires Throwable<std::remove_cvref_t<T>>
[[noreturn]] void throwInternal(T&& exception, const SourceLocation& location = SourceLocation::current()) {
    throw detail::AnonymousInternalException<std::remove_cvref_t<T>>(std::forward<T>(exception), location);
}

} // namespace foundation::core::except
