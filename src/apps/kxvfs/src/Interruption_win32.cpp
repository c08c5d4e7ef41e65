#include <apps/kxvfs/src/Interruption.h>

#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/TemporarySpace.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Recovery.h>

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <string_view>

namespace apps::kxvfs {

namespace {

/// kxvfs --finish-interrupted-run PROCESS LINE FOLDER [LOCATION...]; no option of the help.
constexpr std::string_view finishOption = "--finish-interrupted-run";
constexpr int fixedArguments = 5;
constexpr std::string_view lineShown = "line";
/// What a process ends with that Ctrl-C has ended.
constexpr UINT interruptedStatus = 0xC000013A;
constexpr std::size_t longestPath = 32768;

std::function<Remains()>& remainsOfRun() {
    static auto& instance = *new std::function<Remains()>;
    return instance;
}

/// As CommandLineToArgvW takes it apart.
std::wstring quoted(const std::string& word) {
    std::wstring result = L"\"";
    std::size_t backslashes = 0;
    for (const char16_t c : fl::i18n::fromUtf8(word)) {
        if (c == u'"')
            result.append(backslashes + 1, L'\\');
        backslashes = c == u'\\' ? backslashes + 1 : 0;
        result += static_cast<wchar_t>(c);
    }
    return result.append(backslashes, L'\\') + L"\" ";
}

/// Nothing can be made any more once this process is gone, so another one removes what it leaves.
void startCleaner(const Remains& remains) {
    std::wstring program(longestPath, L'\0');
    program.resize(::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    std::wstring line = quoted("kxvfs") + quoted(std::string(finishOption)) +
                        quoted(std::to_string(::GetCurrentProcessId())) +
                        quoted(std::string(remains.progressLine ? lineShown : "")) +
                        quoted(fl::i18n::toUtf8(remains.temporaryFolder.u16string()));
    for (const auto& location : remains.unfinishedSaves)
        line += quoted(location);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NEW_PROCESS_GROUP,
                         nullptr, nullptr, &start, &process) != 0) {
        ::CloseHandle(process.hThread);
        ::CloseHandle(process.hProcess);
    }
}

/// Before, nobody knows what the process would leave.
std::atomic<bool> remainsAreKnown = false;

BOOL WINAPI endOnEvent(DWORD) {
    static std::atomic<bool> ending = false;
    // The library's own waiting can miss what is told between its look and its sleep.
    while (!remainsAreKnown)
        ::Sleep(1);
    if (!ending.exchange(true))
        startCleaner(remainsOfRun()());
    ::TerminateProcess(::GetCurrentProcess(), interruptedStatus);
    return TRUE;
}

void settle(const std::string& location) {
    try {
        storage::vfs::recoverContainer(foundation::storage::provider::StorageIRI::parse(location));
    } catch (const std::exception&) {
        // Whoever opens the file next meets the same and has somebody to tell.
    }
}

void waitForEnd(DWORD process) {
    const HANDLE handle = ::OpenProcess(SYNCHRONIZE, FALSE, process);
    if (handle) {
        ::WaitForSingleObject(handle, INFINITE);
        ::CloseHandle(handle);
    }
}

} // namespace

void finishInterruptedRun(int count, char** arguments) {
    if (count < fixedArguments || arguments[1] != finishOption)
        return;
    waitForEnd(std::strtoul(arguments[2], nullptr, 10));
    const std::string folder = arguments[4];
    TemporarySpace::removeLeft(std::u8string(folder.begin(), folder.end()));
    for (int i = fixedArguments; i < count; ++i)
        settle(arguments[i]);
    if (arguments[3] == lineShown)
        ProgressLine::erase();
    std::_Exit(EXIT_SUCCESS);
}

void holdSignals() {
    ::SetConsoleCtrlHandler(&endOnEvent, TRUE);
}

void endOnSignals(std::function<Remains()> remains) {
    remainsOfRun() = std::move(remains);
    remainsAreKnown = true;
}

void ignoreBrokenPipes() {}

void endByBrokenPipe() {
    std::_Exit(EXIT_FAILURE);
}

} // namespace apps::kxvfs
