#include "EntryName.h"

#include <fl/i18n/KxLocale.h>
#include <fl/i18n/codecvt_string_to_ustring.h>
#include <fl/i18n/codecvt_ustring_to_string.h>

namespace storage::zipprovider {

fl::i18n::ustring decodeEntryName(std::string_view storedName, bool isUtf8) {
    static const fl::i18n::codecvt_string_to_ustring fromUtf8("UTF-8", 1);
    static const fl::i18n::codecvt_string_to_ustring fromSystemCodeSet(fl::i18n::KxLocale::system().codeSet(),
                                                                       1);
    return isUtf8 ? fromUtf8(storedName) : fromSystemCodeSet(storedName);
}

std::string encodeEntryName(fl::i18n::ustring_view name) {
    static const fl::i18n::codecvt_ustring_to_string toUtf8("UTF-8", 1);
    return toUtf8(name);
}

} // namespace storage::zipprovider
