#include <apps/kxvfs/src/ProgramStart.h>

#include <fl/i18n/utf8.h>

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <io.h>
#include <string>
#include <vector>

namespace apps::kxvfs {

namespace {

struct Arguments {
    std::vector<std::string> words;
    std::vector<char*> pointers;
};

} // namespace

void prepareArguments(int& count, char**& arguments) {
    for (std::FILE* const stream : {stdin, stdout, stderr})
        _setmode(_fileno(stream), _O_BINARY);
    ::SetConsoleOutputCP(CP_UTF8);
    int wideCount = 0;
    wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &wideCount);
    if (!wide)
        return;
    static Arguments own;
    for (int i = 0; i < wideCount; ++i) {
        const std::wstring word(wide[i]);
        own.words.push_back(fl::i18n::toUtf8(fl::i18n::ustring(word.begin(), word.end())));
    }
    ::LocalFree(static_cast<HLOCAL>(wide));
    for (auto& word : own.words)
        own.pointers.push_back(word.data());
    own.pointers.push_back(nullptr);
    count = wideCount;
    arguments = own.pointers.data();
}

void useUtc() {
    _putenv_s("TZ", "UTC0");
    _tzset();
}

} // namespace apps::kxvfs
