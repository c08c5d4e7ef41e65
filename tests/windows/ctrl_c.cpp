#include <cstdio>
#include <cwchar>
#include <string>

#include <windows.h>

namespace {

/// Set for the process that has a console of its own.
constexpr const wchar_t* innerName = L"KX_CTRL_C_INNER";
constexpr DWORD cannotStart = 99;
constexpr DWORD longestEnd = 60'000;

class Program {
public:
    Program(std::wstring line, DWORD flags) {
        STARTUPINFOW start{};
        start.cb = sizeof start;
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
        start.hStdOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
        start.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
        m_started = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                                     &start, &m_process) != 0;
    }
    ~Program() {
        if (m_started) {
            ::CloseHandle(m_process.hThread);
            ::CloseHandle(m_process.hProcess);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    bool endsWithin(DWORD milliseconds) const {
        return m_started && ::WaitForSingleObject(m_process.hProcess, milliseconds) == WAIT_OBJECT_0;
    }
    DWORD status() const {
        DWORD status = cannotStart;
        if (m_started)
            ::GetExitCodeProcess(m_process.hProcess, &status);
        return status;
    }

private:
    PROCESS_INFORMATION m_process{};
    bool m_started = false;
};

BOOL WINAPI survive(DWORD) {
    return TRUE;
}

/// The command line from its second argument on; none of the words before has a blank in it.
const wchar_t* behindDelay(const wchar_t* line) {
    const wchar_t* const delay = std::wcschr(line, L' ');
    const wchar_t* const rest = delay ? std::wcschr(delay + 1, L' ') : nullptr;
    return rest ? rest + 1 : nullptr;
}

} // namespace

/// Starts a program in a console without a window and sends it Ctrl-C: ctrl_c MILLISECONDS PROGRAM
/// [ARGUMENT...] Ends with the program's status. Prints how many milliseconds one took that ended before.
int main() {
    const std::wstring line = ::GetCommandLineW();
    if (::GetEnvironmentVariableW(innerName, nullptr, 0) == 0) {
        ::SetEnvironmentVariableW(innerName, L"1");
        const Program inner(line, CREATE_NO_WINDOW);
        inner.endsWithin(INFINITE);
        return static_cast<int>(inner.status());
    }
    const wchar_t* const rest = behindDelay(line.c_str());
    if (!rest)
        return static_cast<int>(cannotStart);
    const auto begin = ::GetTickCount64();
    const Program program(rest, 0);
    if (program.endsWithin(std::wcstoul(std::wcschr(line.c_str(), L' '), nullptr, 10))) {
        std::printf("%llu\n", ::GetTickCount64() - begin);
        return static_cast<int>(program.status());
    }
    ::SetConsoleCtrlHandler(&survive, TRUE);
    ::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    if (!program.endsWithin(longestEnd))
        return static_cast<int>(cannotStart);
    return static_cast<int>(program.status());
}
