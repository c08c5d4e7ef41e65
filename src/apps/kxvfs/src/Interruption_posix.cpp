#include <apps/kxvfs/src/Interruption.h>

#include <csignal>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace apps::kxvfs {

namespace {

[[noreturn]] void endBySignal(int signal) {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    std::signal(signal, SIG_DFL);
    kill(getpid(), signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    _exit(128 + signal);
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

void endOnSignals(std::function<void()> cleanUp) {
    sigset_t signals;
    sigemptyset(&signals);
    // A signal that the caller has us ignore (nohup) stays ignored.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        if (!isIgnored(signal))
            sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, cleanUp = std::move(cleanUp)] {
        int signal = 0;
        if (sigwait(&signals, &signal) != 0)
            return;
        cleanUp();
        endBySignal(signal);
    }).detach();
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

void endByBrokenPipe() {
    endBySignal(SIGPIPE);
}

} // namespace apps::kxvfs
