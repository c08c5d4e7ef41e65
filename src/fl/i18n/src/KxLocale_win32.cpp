#include <fl/i18n/KxLocale.h>

#include "CodeSetConverter.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace fl::i18n {

namespace {

/// What stands between "." and "@" in the locale that the environment names; empty when there is none.
std::string namedCodeSet() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        const std::string_view locale(value);
        const auto dot = locale.find('.');
        return dot == std::string_view::npos
                   ? std::string()
                   : std::string(locale.substr(dot + 1, locale.find('@') - dot - 1));
    }
    return {};
}

bool isKnown(const std::string& codeSet) {
    try {
        const detail::CodeSetDecoder decoder(codeSet);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

} // namespace

KxLocale::KxLocale(std::string codeSet) : m_codeSet(std::move(codeSet)) {}

KxLocale KxLocale::system() {
    // File names are Unicode here, so the code page of the system has nothing to do with them.
    std::string codeSet = namedCodeSet();
    const bool useful = !codeSet.empty() && !detail::isUtf8Name(codeSet) && isKnown(codeSet);
    return KxLocale(useful ? std::move(codeSet) : "UTF-8");
}

} // namespace fl::i18n
