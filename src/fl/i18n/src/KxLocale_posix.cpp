#include <fl/i18n/KxLocale.h>

#include <langinfo.h>
#include <locale.h>

#include <string_view>
#include <utility>

namespace fl::i18n {

namespace {

/// What C libraries call the code set of the C locale.
bool isPlainAscii(std::string_view codeSet) {
    return codeSet.empty() || codeSet == "ANSI_X3.4-1968" || codeSet == "US-ASCII" || codeSet == "ASCII" ||
           codeSet == "646";
}

} // namespace

KxLocale::KxLocale(std::string codeSet) : m_codeSet(std::move(codeSet)) {}

KxLocale KxLocale::system() {
    std::string codeSet;
    if (const locale_t environment = ::newlocale(LC_CTYPE_MASK, "", locale_t{})) {
        codeSet = ::nl_langinfo_l(CODESET, environment);
        ::freelocale(environment);
    }
    return KxLocale(isPlainAscii(codeSet) ? "UTF-8" : std::move(codeSet));
}

} // namespace fl::i18n
