#include <apps/kxvfs/src/ProgramStart.h>

#include <cstdlib>
#include <ctime>

namespace apps::kxvfs {

void prepareArguments(int&, char**&) {}

void useUtc() {
    setenv("TZ", "UTC", 1);
    tzset();
}

} // namespace apps::kxvfs
