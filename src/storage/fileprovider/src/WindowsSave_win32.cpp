#include <storage/fileprovider/src/WindowsSave.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsCommitMark.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsLocks.h>
#include <storage/fileprovider/src/WindowsNames.h>
#include <storage/fileprovider/src/WindowsPath.h>

#include <fl/filesystem/detail/windows_error.h>
#include <foundation/log/log.h>

#include <algorithm>
#include <cerrno>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;

namespace {

// More savers of one file at once than anyone has.
constexpr unsigned maximalSlots = 10000;

const foundation::log::basic_diagnostic_logger& logger() {
    static const foundation::log::basic_diagnostic_logger instance("storage::fileprovider::SaveTransaction");
    return instance;
}

constexpr int replacements = 20;
constexpr int namings = 500;
constexpr DWORD pauseMilliseconds = 10;

bool isInUse(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_UNABLE_TO_REMOVE_REPLACED;
}

bool isMissing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

} // namespace

WindowsSave::WindowsSave(const StorageIRI& iri, const WindowsSaveRequest& request, bool sync)
    : m_iri(iri), m_mark(m_iri), m_request(request), m_sync(sync),
      m_target(resolvePath(toWindowsFilePath(iri))) {
    m_before = readTarget();
    if (m_before && m_request.mustNotExist) {
        throwWindowsError(m_iri, ERROR_FILE_EXISTS);
    }
    if (!m_before && m_request.mustExist) {
        throwWindowsError(m_iri, ERROR_FILE_NOT_FOUND);
    }
    if (m_before && m_before->isReadOnly) {
        throw Exception(ErrorCode::NotWritable, m_iri, "the file is read-only");
    }
    static_cast<void>(recoverTarget(m_iri, m_target));
    m_before = readTarget();
    createStaging();
    try {
        if (m_before && m_request.keep > 0) {
            fillFromTarget();
        }
    } catch (...) {
        discard();
        throw;
    }
}

WindowsSave::~WindowsSave() {
    discard();
}

std::optional<FileStatus> WindowsSave::readTarget() const {
    auto status = settledStatusOf(m_target);
    if (!status && !isMissing(::GetLastError())) {
        throwWindowsError(m_iri, ::GetLastError());
    }
    if (status && status->isFolder) {
        throw Exception(ErrorCode::AlreadyExists, m_iri, "a folder of that name exists");
    }
    return status;
}

void WindowsSave::createStaging() {
    for (unsigned slot = 0; slot < maximalSlots; ++slot) {
        m_stagingPath = stagingBeside(m_target, slot);
        m_staging = FileHandle::open(m_stagingPath, GENERIC_READ | GENERIC_WRITE, CREATE_NEW);
        if (m_staging.isOpen()) {
            // Between being made and being locked it looks like a dead process's, and may have been removed.
            if (lockFile(m_staging.get(), false) != LockResult::Held && statusOf(m_stagingPath)) {
                return;
            }
            m_staging.close();
        } else if (const DWORD error = ::GetLastError(); error != ERROR_FILE_EXISTS &&
                                                         error != ERROR_ALREADY_EXISTS &&
                                                         error != ERROR_ACCESS_DENIED) {
            throwWindowsError(m_iri, error, "cannot create a file in " + textOf(m_target.parent_path()));
        } else if (error == ERROR_ACCESS_DENIED && !statusOf(m_stagingPath)) {
            // A name whose file is about to go is refused in the same way as a folder that may not be
            // written.
            throwWindowsError(m_iri, error, "cannot create a file in " + textOf(m_target.parent_path()));
        }
    }
    throwWindowsError(m_iri, ERROR_FILE_EXISTS, "cannot create a file in " + textOf(m_target.parent_path()));
}

void WindowsSave::fillFromTarget() {
    const auto target = FileHandle::open(m_target, GENERIC_READ, OPEN_EXISTING);
    const auto status = target.isOpen() ? statusOf(target.get()) : std::nullopt;
    if (!status) {
        throwWindowsError(m_iri, ::GetLastError(), "cannot read the present contents");
    }
    m_before = status;
    const auto size = std::min(m_request.keep, status->size);
    if (!copyBytes(target.get(), file(), size)) {
        throwWindowsError(m_iri, ::GetLastError(),
                          "cannot copy the present contents to " + textOf(m_stagingPath));
    }
}

void WindowsSave::commit() {
    for (;;) {
        const auto target = readTarget();
        if (m_sync && ::FlushFileBuffers(file()) == 0) {
            throwWindowsError(m_iri, ::GetLastError(), "cannot save");
        }
        if (!target) {
            if (commitNewFile()) {
                return;
            }
            continue;
        }
        if (m_request.mustNotExist) {
            throwWindowsError(m_iri, ERROR_FILE_EXISTS);
        }
        requireUnchanged(*target);
        if (target->links > 1) {
            overwrite(*target);
        } else {
            replace();
        }
        return;
    }
}

void WindowsSave::requireUnchanged(const FileStatus& target) const {
    if (m_request.keep == 0 || (m_before && m_before->isSameState(target))) {
        return;
    }
    throw Exception(ErrorCode::Busy, m_iri,
                    m_before ? "another program changed the file while it was open for writing"
                             : "another program made the file while it was open for writing");
}

bool WindowsSave::commitNewFile() {
    if (::MoveFileExW(m_stagingPath.c_str(), m_target.c_str(), m_sync ? MOVEFILE_WRITE_THROUGH : 0) == 0) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) {
            return false;
        }
        throwWindowsError(m_iri, error, "cannot save");
    }
    KX_LOG(logger()) << " target=" << textOf(m_target) << " way=new";
    passLockOn();
    return true;
}

void WindowsSave::replace() {
    const auto staging = statusOf(file());
    if (!staging) {
        throwWindowsError(m_iri, ::GetLastError(), "cannot save");
    }
    const WindowsCommitMark mark(*staging);
    m_staging.close();
    nameReplacement();
    const DWORD error = replaceBy(m_stagingPath);
    if (error == ERROR_SUCCESS) {
        KX_LOG(logger()) << " target=" << textOf(m_target) << " way=rename";
        passLockOn();
        return;
    }
    if (!statusOf(m_target) && isMissing(::GetLastError())) {
        // These are the only contents that are left.
        m_stagingPath.clear();
    }
    throwWindowsError(m_iri, isInUse(error) ? ERROR_SHARING_VIOLATION : error, "cannot save");
}

void WindowsSave::nameReplacement() {
    const auto replacement = replacementBeside(m_target);
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < namings; ++attempt) {
        if (::MoveFileExW(m_stagingPath.c_str(), replacement.c_str(), m_sync ? MOVEFILE_WRITE_THROUGH : 0) !=
            0) {
            m_stagingPath = replacement;
            return;
        }
        error = ::GetLastError();
        if (error != ERROR_ALREADY_EXISTS && error != ERROR_FILE_EXISTS) {
            break;
        }
        // Another save of the file is just replacing it, or was interrupted in that.
        static_cast<void>(recoverTarget(m_iri, m_target));
        ::Sleep(pauseMilliseconds);
    }
    throwWindowsError(
        m_iri, error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS ? ERROR_SHARING_VIOLATION : error,
        "cannot save");
}

DWORD WindowsSave::replaceBy(const fs::path& replacement) const {
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < replacements; ++attempt) {
        // Asked first, since a ReplaceFile that fails half-way may leave files of its own. It keeps what the
        // file is to the system: its security descriptor, its attributes, the time of its making.
        if (FileHandle::open(m_target, DELETE, OPEN_EXISTING).isOpen() &&
            ::ReplaceFileW(m_target.c_str(), replacement.c_str(), nullptr, 0, nullptr, nullptr) != 0) {
            return ERROR_SUCCESS;
        }
        error = ::GetLastError();
        if (!isInUse(error)) {
            break;
        }
        // Scanners, and those who look for stray staging files, have it open for a moment.
        ::Sleep(pauseMilliseconds);
    }
    return error;
}

void WindowsSave::overwrite(const FileStatus& target) {
    const auto goal = FileHandle::open(m_target, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    if (!goal.isOpen()) {
        throwWindowsError(m_iri, ::GetLastError(), "cannot save");
    }
    const auto journal = journalBeside(m_target, target.index);
    if (::MoveFileExW(m_stagingPath.c_str(), journal.c_str(), MOVEFILE_WRITE_THROUGH) == 0) {
        throwWindowsError(m_iri, ::GetLastError(), "cannot save");
    }
    KX_LOG(logger()) << " target=" << textOf(m_target) << " way=overwrite";
    m_stagingPath.clear();
    const auto status = statusOf(file());
    if (!status || !copyBytes(file(), goal.get(), status->size) || !setSize(goal.get(), status->size) ||
        ::FlushFileBuffers(goal.get()) == 0) {
        throwWindowsError(m_iri, ::GetLastError(),
                          "cannot save; the new contents are in " + textOf(journal) +
                              " and are put in place when the file is next opened");
    }
    ::DeleteFileW(journal.c_str());
    m_staging.close();
}

void WindowsSave::passLockOn() {
    m_stagingPath.clear();
    auto& locks = WindowsLocks::instance();
    if (!m_staging.isOpen() && locks.holds(m_target)) {
        m_staging = FileHandle::open(m_target, GENERIC_READ, OPEN_EXISTING);
        // Somebody may have locked the file as soon as it was in place; who holds it is soon done.
        static_cast<void>(lockFile(m_staging.get(), true));
    }
    locks.passOn(m_target, std::move(m_staging));
}

void WindowsSave::discard() noexcept {
    if (!m_stagingPath.empty()) {
        ::DeleteFileW(m_stagingPath.c_str());
        m_stagingPath.clear();
    }
    m_staging.close();
}

} // namespace storage::fileprovider
