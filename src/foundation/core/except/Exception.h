#pragma once

#include <foundation/core/SourceLocation.h>
#include <foundation/core/except/IException.h>

#include <concepts>
#include <exception>
#include <type_traits>
#include <utility>

namespace foundation::core::except {

/// What can be thrown as an Exception: a copyable class that can be derived from and is no IException yet.
template <typename T>
concept Throwable = std::is_class_v<T> && !std::is_final_v<T> && std::copy_constructible<T> &&
                    !std::derived_from<T, IException>;

/// An object that is both a T and an Interface (IException or an interface derived from it), so that handlers
/// for either find it.
template <std::derived_from<IException> Interface, Throwable T>
class Exception : public T, public Interface {
public:
    Exception(T thrown, const SourceLocation& location) : T(std::move(thrown)), m_location(location) {}

    /// The text of T where T is a std::exception, else a general one.
    const char* getText() const noexcept override {
        if constexpr (std::derived_from<T, std::exception>) {
            return T::what();
        } else {
            return "exception without a text";
        }
    }

    const SourceLocation& getSourceLocation() const noexcept override { return m_location; }

private:
    SourceLocation m_location;
};

} // namespace foundation::core::except
