#include <storage/zipprovider/src/EntryName.h>

#include <fl/i18n/utf8.h>

#include <cstdlib>
#include <iostream>
#include <string>

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
