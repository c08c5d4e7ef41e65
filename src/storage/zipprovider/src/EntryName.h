#pragma once

#include <fl/i18n/ustring.h>

#include <string>
#include <string_view>

namespace storage::zipprovider {

/// A name as a central-directory header stores it, decoded: as UTF-8 when the general-purpose flag says so,
/// otherwise in the code set of the system's locale, which is asked for once per process. Never fails: bytes
/// that cannot be decoded become U+FFFD.
fl::i18n::ustring decodeEntryName(std::string_view storedName, bool isUtf8);

/// The form in which names are looked up and written, whatever flag an entry carries: UTF-8.
std::string encodeEntryName(fl::i18n::ustring_view name);

} // namespace storage::zipprovider
