#include <apps/kxvfs/src/Terminal.h>

#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace apps::kxvfs {

bool outputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

bool errorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

std::size_t terminalWidth() {
    winsize size{};
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
            return size.ws_col;
    return 80;
}

bool colourWanted() {
    const char* none = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return outputIsTerminal() && !(none && *none) && terminal && std::string_view(terminal) != "dumb";
}

} // namespace apps::kxvfs
