#include "EntryExistsException.h"
#include "EntryNotFoundException.h"
#include "FolderNotEmptyException.h"
#include "MiniZipException.h"
#include "WorkingEntryOpenException.h"

#include <fl/i18n/codecvt_ustring_to_string.h>

#include <algorithm>
#include <string>

namespace storage::zipprovider {

using fl::i18n::ustring;

namespace {

/// what() ends at a NUL, which a name may hold.
std::string narrow(ustring message) {
    std::replace(message.begin(), message.end(), u'\0', u'\u2400');
    return fl::i18n::codecvt_ustring_to_string("UTF-8", 1)(message);
}

} // namespace

EntryExistsException::EntryExistsException(const ZipEntryPath& path)
    : std::runtime_error(narrow(u"Entry " + path.toString() + u" already exists")) {}

EntryNotFoundException::EntryNotFoundException(const ZipEntryPath& path)
    : std::runtime_error(narrow(u"Entry " + path.toString() + u" could not be found")) {}

FolderNotEmptyException::FolderNotEmptyException(const ZipEntryPath& path)
    : std::runtime_error(narrow(u"Folder " + path.toString() + u" is not empty")) {}

WorkingEntryOpenException::WorkingEntryOpenException(const ustring& workingFile)
    : std::runtime_error(narrow(u"Working entry " + workingFile + u" could not be opened")) {}

MiniZipException::MiniZipException(const ustring& message) : std::runtime_error(narrow(message)) {}

} // namespace storage::zipprovider
