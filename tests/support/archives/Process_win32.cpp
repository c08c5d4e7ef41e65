#include <support/archives/Process.h>

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

std::wstring wideOf(const std::string& text) {
    std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(
                          CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0)),
                      L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                          static_cast<int>(wide.size()));
    return wide;
}

/// As the C library's start-up code takes it apart.
std::wstring quoted(const std::string& word) {
    std::wstring result = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : wideOf(word)) {
        if (c == L'"')
            result.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, L'\\') + L"\" ";
}

std::string readWhole(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A folder for the streams of one process.
class StreamFiles {
public:
    StreamFiles() {
        static std::atomic<unsigned> count = 0;
        m_folder = fs::temp_directory_path() /
                   ("kx-process-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++count));
        fs::create_directories(m_folder);
    }
    ~StreamFiles() {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }
    StreamFiles(const StreamFiles&) = delete;
    StreamFiles& operator=(const StreamFiles&) = delete;

    fs::path file(const char* name) const { return m_folder / name; }

private:
    fs::path m_folder;
};

class Handle {
public:
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle() { ::CloseHandle(m_handle); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};

HANDLE openInheritable(const fs::path& path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         &inheritable, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// On a busy machine a process of Wine may go before it has begun to run, which Wine calls an internal error.
/// Then nothing of it was done, and another one is started.
template <typename Start>
void startProcess(Start start) {
    constexpr int attempts = 3;
    for (int attempt = 1; start() == 0; ++attempt) {
        const auto error = ::GetLastError();
        if (error != ERROR_INTERNAL_ERROR || attempt == attempts)
            throw std::system_error(static_cast<int>(error), std::system_category(), "CreateProcess");
    }
}

/// The caller's environment with the additions, as CreateProcessW takes it.
std::wstring environmentWith(const std::vector<std::pair<std::string, std::string>>& additions) {
    std::wstring block;
    wchar_t* const own = ::GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
        const std::wstring text(entry);
        bool isReplaced = false;
        for (const auto& [name, value] : additions)
            isReplaced = isReplaced || text.starts_with(wideOf(name) + L"=");
        if (!isReplaced)
            block += text + L'\0';
    }
    ::FreeEnvironmentStringsW(own);
    for (const auto& [name, value] : additions)
        block += wideOf(name) + L"=" + wideOf(value) + L'\0';
    return block + L'\0';
}

fs::path findProgram(const std::string& name) {
    std::wstring found(32768, L'\0');
    found.resize(::SearchPathW(nullptr, wideOf(name).c_str(), L".exe", static_cast<DWORD>(found.size()),
                               found.data(), nullptr));
    return found;
}

/// A program of the machine that Wine runs on; empty when there is none.
fs::path findNativeProgram(const std::string& name) {
    for (const char* folder : {"Z:\\usr\\bin", "Z:\\bin"}) {
        std::error_code ignored;
        const fs::path program = fs::path(folder) / wideOf(name);
        if (fs::exists(program, ignored))
            return program;
    }
    return {};
}

/// Wine starts a program of the machine, but gives no handle to wait for it and does not hand its pipes on;
/// the script makes files of them.
ProcessResult runNative(const std::vector<std::string>& command, const ProcessOptions& options,
                        const StreamFiles& files) {
    std::wstring line = quoted(KX_NATIVE_RUNNER) + quoted(files.file("").parent_path().string());
    for (const auto& word : command)
        line += quoted(word);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    std::wstring environment = environmentWith(options.environment);
    const std::wstring directory = wideOf(options.directory);
    PROCESS_INFORMATION process{};
    startProcess([&] {
        return ::CreateProcessW(wideOf("Z:" KX_NATIVE_RUNNER).c_str(), line.data(), nullptr, nullptr, FALSE,
                                CREATE_UNICODE_ENVIRONMENT, environment.data(),
                                directory.empty() ? nullptr : directory.c_str(), &start, &process);
    });
    ProcessResult result;
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    while (!fs::exists(files.file("status"))) {
        if (std::chrono::steady_clock::now() > deadline) {
            result.timedOut = true;
            return result;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    result.exitCode = std::atoi(readWhole(files.file("status")).c_str());
    return result;
}

ProcessResult run(const fs::path& program, std::wstring line, const ProcessOptions& options,
                  const StreamFiles& files) {
    const Handle input(openInheritable(files.file("in"), GENERIC_READ, OPEN_EXISTING));
    const Handle output(openInheritable(files.file("out"), GENERIC_WRITE, CREATE_ALWAYS));
    const Handle errors(openInheritable(files.file("err"), GENERIC_WRITE, CREATE_ALWAYS));
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = input.get();
    start.hStdOutput = output.get();
    start.hStdError = errors.get();
    std::wstring environment = environmentWith(options.environment);
    const std::wstring directory = wideOf(options.directory);
    PROCESS_INFORMATION process{};
    startProcess([&] {
        return ::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                                CREATE_UNICODE_ENVIRONMENT, environment.data(),
                                directory.empty() ? nullptr : directory.c_str(), &start, &process);
    });
    ::CloseHandle(process.hThread);
    const Handle handle(process.hProcess);
    ProcessResult result;
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(options.timeout).count();
    result.timedOut = ::WaitForSingleObject(handle.get(), static_cast<DWORD>(limit)) == WAIT_TIMEOUT;
    if (result.timedOut) {
        ::TerminateProcess(handle.get(), 1);
        ::WaitForSingleObject(handle.get(), INFINITE);
    }
    DWORD code = 0;
    ::GetExitCodeProcess(handle.get(), &code);
    result.exitCode = static_cast<int>(code);
    return result;
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& command, const ProcessOptions& options) {
    const StreamFiles files;
    std::ofstream(files.file("in"), std::ios::binary) << options.input;
    const fs::path program = findProgram(command.front());
    ProcessResult result;
    result.exitCode = 127;
    if (program.empty() && findNativeProgram(command.front()).empty())
        return result;
    if (program.empty()) {
        result = runNative(command, options, files);
    } else {
        std::wstring line;
        for (const auto& word : command)
            line += quoted(word);
        result = run(program, std::move(line), options, files);
    }
    result.output = readWhole(files.file("out"));
    result.errors = readWhole(files.file("err"));
    return result;
}

bool programExists(const std::string& name) {
    return !findProgram(name).empty() || !findNativeProgram(name).empty();
}

} // namespace kx::test
