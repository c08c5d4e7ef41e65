#include <storage/fileprovider/src/Failure.h>

#include <cctype>
#include <cerrno>
#include <system_error>

#ifndef EDQUOT
// A system without quotas: no error has this number.
#define EDQUOT 100000
#endif

namespace storage::fileprovider {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

ErrorCode toErrorCode(int error) noexcept {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ELOOP:
        return ErrorCode::NotFound;
    case EEXIST:
        return ErrorCode::AlreadyExists;
    case ENOTEMPTY:
        return ErrorCode::FolderNotEmpty;
    case EACCES:
    case EPERM:
        return ErrorCode::AccessDenied;
    case EROFS:
        return ErrorCode::NotWritable;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ErrorCode::NoSpace;
    case EBUSY:
    case EAGAIN:
    case ETXTBSY:
        return ErrorCode::Busy;
    case EINVAL:
    case ENAMETOOLONG:
    case EOVERFLOW:
        return ErrorCode::InvalidArgument;
    case ENOTSUP:
    case ENOSYS:
        return ErrorCode::NotSupported;
    default:
        return ErrorCode::LocalFileSystem;
    }
}

bool isMissing(int error) noexcept {
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG;
}

bool isAbsence(int error) noexcept {
    return isMissing(error) || error == ELOOP || error == EACCES;
}

std::string systemText(int error) {
    auto text = std::generic_category().message(error);
    if (!text.empty()) {
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    }
    return text;
}

void throwSystemError(const foundation::storage::provider::StorageIRI& iri, int error,
                      std::string_view doing) {
    auto cause = systemText(error);
    if (!doing.empty()) {
        cause = std::string(doing) + ": " + cause;
    }
    throw Exception(toErrorCode(error), iri, cause);
}

} // namespace storage::fileprovider
