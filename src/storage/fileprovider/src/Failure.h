#pragma once

#include <foundation/storage/provider/Exception.h>

#include <string>
#include <string_view>

namespace storage::fileprovider {

/// The code that stands for an errno value.
foundation::storage::provider::ErrorCode toErrorCode(int error) noexcept;

/// Whether an errno value of looking for an item says that nothing is there that this user can see, as
/// against a failure of looking.
bool isAbsence(int error) noexcept;

/// Whether it says that nothing can be there, whoever looks: that nothing stands at that path, or that no
/// path can be so long.
bool isMissing(int error) noexcept;

/// The system's own words for an errno value, as a lower-case clause.
std::string systemText(int error);

/// Throws the provider's Exception for an errno value. The cause is the system's text, behind `doing` and a
/// colon when that is given ("cannot write /tmp/x").
[[noreturn]] void throwSystemError(const foundation::storage::provider::StorageIRI& iri, int error,
                                   std::string_view doing = {});

} // namespace storage::fileprovider
