#include <apps/kxvfs/src/Failure.h>

#include <fmt/format.h>
#include <foundation/storage/provider/Exception.h>

#include <array>
#include <new>
#include <string_view>

namespace apps::kxvfs {

using foundation::storage::provider::toText;
using ProviderException = foundation::storage::provider::Exception;

namespace {

/// Reading an archive stops with the calendar's own error at an entry whose stored date is no day.
bool isCalendarError(const std::string& text) {
    return text.starts_with("Year is ") || text.starts_with("Month number ") ||
           text.starts_with("Day of month ");
}

/// A failure of the library that reads archives, as its operation, and what that says of the archive.
struct LibraryFailure {
    std::string_view operation;
    std::string_view meaning;
};

constexpr std::array libraryFailures{
    LibraryFailure{"unzReadCurrentFile", "an entry's data cannot be read to its end"},
    LibraryFailure{"unzOpenCurrentFile", "an entry cannot be opened"},
    LibraryFailure{"unzLocateFile", "an entry cannot be found under its name"},
    LibraryFailure{"unzGoToFirstFile", "its directory cannot be read"},
    LibraryFailure{"unzGoToNextFile", "its directory cannot be read"},
    LibraryFailure{"unzGetCurrentFileInfo64", "its directory cannot be read"}};

/// A text with "Error … unzOperation in …" at its end becomes one that a person can do something with.
Failure fromText(const std::string& text) {
    const auto begin = text.find("Error ");
    if (begin != std::string::npos)
        for (const auto& known : libraryFailures)
            if (text.find(known.operation, begin) != std::string::npos)
                return {fmt::format("{}damaged ZIP archive: {}", text.substr(0, begin), known.meaning),
                        foundation::storage::provider::ErrorCode::ContainerUnreadable,
                        {},
                        text.substr(begin)};
    return {text, {}, {}};
}

} // namespace

Failure describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const ProviderException& failure) {
        auto cause =
            failure.getCause().empty() ? std::string(toText(failure.getErrorCode())) : failure.getCause();
        return {std::move(cause), failure.getErrorCode(),
                failure.getIRI().empty() ? "" : failure.getIRI().toUtf8()};
    } catch (const CommandError& failure) {
        return {failure.what(), failure.code(), {}};
    } catch (const std::bad_alloc&) {
        return {"out of memory", {}, {}};
    } catch (const std::out_of_range& failure) {
        if (isCalendarError(failure.what()))
            return {fmt::format("the archive holds an entry with an impossible date ({})", failure.what()),
                    foundation::storage::provider::ErrorCode::ContainerUnreadable,
                    {}};
        return {failure.what(), {}, {}};
    } catch (const std::exception& failure) {
        return fromText(failure.what());
    } catch (...) {
        return {"an unknown failure", {}, {}};
    }
}

} // namespace apps::kxvfs
