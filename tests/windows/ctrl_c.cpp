#include <string>

#include <windows.h>

namespace {

/// Set for the process that has a console of its own.
constexpr const wchar_t* innerName = L"KX_CTRL_C_INNER";
constexpr DWORD cannotStart = 99;
constexpr DWORD lookInterval = 2;
constexpr DWORD longestEnd = 120'000;

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

    bool isStarted() const { return m_started; }
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

bool isThere(const std::wstring& file) {
    return ::GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace

/// Starts a program in a console without a window and sends it Ctrl-C once FILE is there: ctrl_c FILE PROGRAM
/// [ARGUMENT...] Ends with the program's status.
int main() {
    const std::wstring line = ::GetCommandLineW();
    if (::GetEnvironmentVariableW(innerName, nullptr, 0) == 0) {
        ::SetEnvironmentVariableW(innerName, L"1");
        const Program inner(line, CREATE_NO_WINDOW);
        inner.endsWithin(INFINITE);
        return static_cast<int>(inner.status());
    }
    // None of these words has a blank in it.
    const auto behindName = line.find(L' ');
    const auto behindFile = line.find(L' ', behindName + 1);
    if (behindFile == std::wstring::npos)
        return static_cast<int>(cannotStart);
    const auto file = line.substr(behindName + 1, behindFile - behindName - 1);
    const Program program(line.substr(behindFile + 1), 0);
    while (program.isStarted() && !isThere(file)) {
        if (program.endsWithin(lookInterval))
            return static_cast<int>(program.status());
    }
    ::SetConsoleCtrlHandler(&survive, TRUE);
    ::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    if (!program.endsWithin(longestEnd))
        return static_cast<int>(cannotStart);
    return static_cast<int>(program.status());
}
