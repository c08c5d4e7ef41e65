#include <storage/mount/src/FuseSession.h>

#include <storage/mount/src/FuseOperations.h>
#include <storage/mount/src/RequestLoop.h>

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace storage::mount {

namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == ',' || c == '\\')
            result += '\\';
        result += c;
    }
    return result;
}

std::string optionsFor(const std::string& source, const MountOptions& options) {
    auto text = fmt::format("fsname={},subtype=kxvfs,default_permissions", escaped(source));
    if (options.readOnly)
        text += ",ro";
    if (options.allowOther)
        text += ",allow_other";
    return text;
}

/// Owns the vector of strings that libfuse parses.
struct Arguments {
    explicit Arguments(const std::string& options) {
        for (const auto* word : {"kxvfs", "-o", options.c_str()})
            if (fuse_opt_add_arg(&list, word) != 0)
                throw std::bad_alloc();
    }
    ~Arguments() { fuse_opt_free_args(&list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    fuse_args list = FUSE_ARGS_INIT(0, nullptr);
};

/// libfuse prints why it failed; this keeps the last line of it for the message.
thread_local std::string lastComplaint;

void hear(fuse_log_level level, const char* format, va_list arguments) {
    if (level > FUSE_LOG_WARNING)
        return;
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    lastComplaint = text.data();
    while (!lastComplaint.empty() && lastComplaint.back() == '\n')
        lastComplaint.pop_back();
}

} // namespace

struct FuseSession::Impl {
    FuseContext context;
    const std::filesystem::path mountPoint;
    fuse_session* session = nullptr;
    bool mounted = false;
    std::unique_ptr<RequestLoop> loop = nullptr;
    std::atomic<bool> serving = false;

    /// What programs have written through memory maps is with the kernel until it is asked for.
    void fetchMappedPages() const {
        const int folder = open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder < 0)
            return;
        syncfs(folder);
        close(folder);
    }
};

FuseSession::FuseSession(FileSystem& files, const std::string& source,
                         const std::filesystem::path& mountPoint, const MountOptions& options)
    : m_impl(new Impl{{files, !options.nested}, mountPoint}) {
    fuse_set_log_func(hear);
    Arguments arguments(optionsFor(source, options));
    m_impl->session =
        fuse_session_new(&arguments.list, &fuseOperations(), sizeof(fuse_lowlevel_ops), &m_impl->context);
    if (!m_impl->session)
        throw std::runtime_error(fmt::format("cannot start a FUSE session: {}", lastComplaint));
    if (fuse_session_mount(m_impl->session, mountPoint.c_str()) != 0) {
        const int error = errno;
        fuse_session_destroy(m_impl->session);
        throw std::runtime_error(
            fmt::format("cannot mount over {}: {}", mountPoint.string(),
                        lastComplaint.empty() ? std::generic_category().message(error) : lastComplaint));
    }
    m_impl->mounted = true;
    try {
        m_impl->loop = std::make_unique<RequestLoop>(m_impl->session);
    } catch (...) {
        fuse_session_unmount(m_impl->session);
        fuse_session_destroy(m_impl->session);
        throw;
    }
}

FuseSession::~FuseSession() {
    m_impl->loop.reset();
    if (m_impl->mounted)
        fuse_session_unmount(m_impl->session);
    fuse_session_destroy(m_impl->session);
}

void FuseSession::start() {
    m_impl->loop->start();
}

void FuseSession::serve() {
    m_impl->serving = true;
    std::exception_ptr failure;
    try {
        m_impl->loop->run();
    } catch (...) {
        failure = std::current_exception();
    }
    m_impl->serving = false;
    m_impl->serving.notify_all();
    fuse_session_unmount(m_impl->session);
    m_impl->mounted = false;
    if (failure)
        std::rethrow_exception(failure);
}

void FuseSession::end() {
    m_impl->fetchMappedPages();
    m_impl->loop->end();
    m_impl->serving.wait(true);
}

bool FuseSession::isSupported() {
    return true;
}

} // namespace storage::mount
