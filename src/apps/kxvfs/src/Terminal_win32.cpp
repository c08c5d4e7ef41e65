#include <apps/kxvfs/src/Terminal.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <io.h>

namespace apps::kxvfs {

namespace {

/// Consoles of old systems know no colours by escape sequences.
bool understandsColours() {
    const HANDLE console = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return ::GetConsoleMode(console, &mode) != 0 &&
           ::SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

} // namespace

bool outputIsTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

bool errorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

std::size_t terminalWidth() {
    for (const DWORD stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        CONSOLE_SCREEN_BUFFER_INFO info{};
        if (::GetConsoleScreenBufferInfo(::GetStdHandle(stream), &info) != 0 &&
            info.srWindow.Right > info.srWindow.Left)
            return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
    }
    return 80;
}

bool colourWanted() {
    const char* none = std::getenv("NO_COLOR");
    return outputIsTerminal() && !(none && *none) && understandsColours();
}

} // namespace apps::kxvfs
