#include <foundation/log/control.h>
#include <foundation/log/log.h>

#include <exception>
#include <iostream>
#include <string_view>

namespace {

const foundation::log::basic_diagnostic_logger outer("probe::outer::Class");
const foundation::log::basic_diagnostic_logger inner("probe::inner::Class");

int write(int count) {
    KX_LOG_FUNCTION_AS(scope, inner);
    KX_LOG_DEBUG(inner) << "Size before write: " << 5;
    return scope.wrote(count);
}

void run() {
    KX_LOG_FUNCTION(outer);
    KX_LOG(outer) << " path=" << u"/d\u00E4\n\u001B[31m";
    write(3);
}

} // namespace

/// Logs under KX_LOG; then once more under each argument as a selection.
int main(int argc, char** argv) {
    run();
    for (int i = 1; i < argc; ++i) {
        try {
            foundation::log::enableFromText(argv[i]);
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << '\n';
        }
        run();
    }
    std::cout << "done\n";
}
