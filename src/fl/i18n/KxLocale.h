#pragma once

#include <fl/i18n/Export.h>

#include <string>

namespace fl::i18n {

/// What the platform needs to know of a locale.
class KXI18N_API KxLocale {
public:
    /// The locale that the environment asks for (LC_ALL, LC_CTYPE, LANG) at the time of the call. The
    /// process's own locale is neither looked at nor changed. A locale that the system does not have counts
    /// as "C". Threads: any, as long as no other changes the environment.
    static KxLocale system();

    /// The name of the code set of file names and other bytes, as the converters take it. "UTF-8" in the C
    /// (or POSIX) locale: bytes above 127 mean nothing there, and UTF-8 is what they nearly always are.
    const std::string& codeSet() const noexcept { return m_codeSet; }

private:
    explicit KxLocale(std::string codeSet);

    std::string m_codeSet;
};

} // namespace fl::i18n
