#include <foundation/storage/provider/ErrorCode.h>

namespace foundation::storage::provider {

std::string_view toText(ErrorCode code) noexcept {
    switch (code) {
    case ErrorCode::FolderNotEmpty:
        return "folder not empty";
    case ErrorCode::ContainerUnreadable:
        return "container unreadable";
    case ErrorCode::NotWritable:
        return "not writable";
    case ErrorCode::AlreadyExists:
        return "already exists";
    case ErrorCode::NotFound:
        return "not found";
    case ErrorCode::NotSupported:
        return "not supported";
    case ErrorCode::AccessDenied:
        return "access denied";
    case ErrorCode::InvalidArgument:
        return "invalid argument";
    case ErrorCode::NoSpace:
        return "no space left";
    case ErrorCode::LocalFileSystem:
        return "local file system failed";
    case ErrorCode::Busy:
        return "busy";
    }
    return "unknown error";
}

} // namespace foundation::storage::provider
