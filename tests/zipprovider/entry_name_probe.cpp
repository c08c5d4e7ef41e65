#include <storage/zipprovider/src/EntryName.h>

#include <fl/i18n/utf8.h>
#include <foundation/core/Export.h>

#include <cstdlib>
#include <iostream>
#include <string>

// For LeakSanitizer: the C library's newlocale() does not free its list of the folders in LOCPATH.
extern "C" KX_EXPORT_SYMBOL const char* __lsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() {
    return "leak:__argz_add_sep\n";
}

/// Decodes each line of standard input as a stored name and writes it in UTF-8. A line begins with "u" for a
/// name that has the UTF-8 flag, with "s" for one that has not, and with "=NAME" to change LC_ALL in between.
int main() {
    for (std::string line; std::getline(std::cin, line);) {
        if (line.front() == '=') {
            setenv("LC_ALL", line.substr(1).c_str(), 1);
            continue;
        }
        const auto name = storage::zipprovider::decodeEntryName(line.substr(1), line.front() == 'u');
        std::cout << fl::i18n::toUtf8(name) << '\n';
    }
}
