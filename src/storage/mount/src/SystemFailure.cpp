#include <storage/mount/src/SystemFailure.h>

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/storage/provider/ErrorCode.h>
#include <foundation/storage/provider/Exception.h>

#include <cerrno>
#include <new>

namespace storage::mount {

using foundation::storage::provider::ErrorCode;

namespace {

int errorNumberOf(ErrorCode code) {
    switch (code) {
    case ErrorCode::FolderNotEmpty:
        return ENOTEMPTY;
    case ErrorCode::NotWritable:
        return EROFS;
    case ErrorCode::AlreadyExists:
        return EEXIST;
    case ErrorCode::NotFound:
        return ENOENT;
    case ErrorCode::NotSupported:
        return ENOTSUP;
    case ErrorCode::AccessDenied:
        return EACCES;
    case ErrorCode::InvalidArgument:
        return EINVAL;
    case ErrorCode::NoSpace:
        return ENOSPC;
    case ErrorCode::Busy:
        return EBUSY;
    case ErrorCode::ContainerUnreadable:
    case ErrorCode::LocalFileSystem:
        break;
    }
    return EIO;
}

int errorNumberOf(const std::error_code& code) {
    const bool system =
        code.category() == std::generic_category() || code.category() == std::system_category();
    return system && code.value() > 0 ? code.value() : EIO;
}

} // namespace

void failWith(int error) {
    throw std::system_error(error, std::generic_category());
}

void failWith(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

int errorNumberOf(const std::exception_ptr& failure) noexcept {
    try {
        std::rethrow_exception(failure);
    } catch (const foundation::storage::provider::Exception& refused) {
        return errorNumberOf(refused.getErrorCode());
    } catch (const fl::filesystem::FsysExceptionBase& local) {
        return errorNumberOf(local.getErrorCode());
    } catch (const std::system_error& system) {
        return errorNumberOf(system.code());
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (...) {
        return EIO;
    }
}

std::string causeOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& known) {
        return known.what();
    } catch (...) {
        return "an unknown failure";
    }
}

} // namespace storage::mount
