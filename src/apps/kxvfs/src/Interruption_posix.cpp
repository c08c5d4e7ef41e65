#include <apps/kxvfs/src/Interruption.h>

#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/TemporarySpace.h>

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Recovery.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <pthread.h>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace apps::kxvfs {

namespace {

using namespace std::chrono_literals;

/// kxvfs --finish-interrupted-run SIGNAL LINE FOLDER [LOCATION...]; no option of the help.
constexpr std::string_view finishOption = "--finish-interrupted-run";
constexpr int fixedArguments = 5;
constexpr std::string_view lineShown = "line";
constexpr int firstFile = 3;

/// Some senders signal a process and its group, so it gets one signal twice. One that comes later than this
/// is from somebody who does not want to wait.
constexpr std::chrono::nanoseconds sameRequest = 250ms;
static_assert(sameRequest < 1s, "dropSignals waits for a part of a second");

[[noreturn]] void endBySignal(int signal) {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    std::signal(signal, SIG_DFL);
    // To this thread: what goes to the process may be taken by another one that waits for signals.
    std::raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    _exit(128 + signal);
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Those that ask for the end, but for one that the caller has us ignore (nohup).
sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        if (!isIgnored(signal))
            sigaddset(&signals, signal);
    return signals;
}

/// Does not return unless the system refuses.
void becomeCleaner(int signal, const Remains& remains) {
    std::vector<std::string> words{"kxvfs", std::string(finishOption), std::to_string(signal),
                                   std::string(remains.progressLine ? lineShown : ""),
                                   remains.temporaryFolder.string()};
    words.insert(words.end(), remains.unfinishedSaves.begin(), remains.unfinishedSaves.end());
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv("/proc/self/exe", arguments.data());
}

/// Takes those that come within `time`, and those that wait already.
void dropSignals(const sigset_t& signals, std::chrono::nanoseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (auto left = time; left > 0ns; left = end - std::chrono::steady_clock::now()) {
        const timespec limit{0, static_cast<long>(left.count())};
        sigtimedwait(&signals, nullptr, &limit);
    }
}

void letFurtherSignalsEndTheProcess() {
    std::thread([] {
        const auto signals = endingSignals();
        dropSignals(signals, sameRequest);
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        std::this_thread::sleep_for(1h);
    }).detach();
}

void settle(const std::string& location) {
    try {
        storage::vfs::recoverContainer(foundation::storage::provider::StorageIRI::parse(location));
    } catch (const std::exception&) {
        // Whoever opens the file next meets the same and has somebody to tell.
    }
}

} // namespace

void finishInterruptedRun(int count, char** arguments) {
    if (count < fixedArguments || arguments[1] != finishOption)
        return;
    letFurtherSignalsEndTheProcess();
    // Files that were open without the mark to be closed here: a lock on one of them would still be held.
    closefrom(firstFile);
    const int signal = std::atoi(arguments[2]);
    TemporarySpace::removeLeft(arguments[4]);
    for (int i = fixedArguments; i < count; ++i)
        settle(arguments[i]);
    if (arguments[3] == lineShown)
        ProgressLine::erase();
    endBySignal(signal);
}

void holdSignals() {
    const auto signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void endOnSignals(std::function<Remains()> remains) {
    std::thread([signals = endingSignals(), remains = std::move(remains)] {
        int signal = 0;
        if (sigwait(&signals, &signal) != 0)
            return;
        const auto left = remains();
        becomeCleaner(signal, left);
        TemporarySpace::removeLeft(left.temporaryFolder);
        endBySignal(signal);
    }).detach();
}

void waitForSignal() {
    const auto signals = endingSignals();
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

void endByBrokenPipe() {
    endBySignal(SIGPIPE);
}

} // namespace apps::kxvfs
