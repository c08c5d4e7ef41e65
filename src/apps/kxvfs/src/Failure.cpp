#include <apps/kxvfs/src/Failure.h>

#include <fmt/format.h>
#include <foundation/storage/provider/Exception.h>

#include <new>

namespace apps::kxvfs {

using foundation::storage::provider::toText;
using ProviderException = foundation::storage::provider::Exception;

namespace {

/// Reading an archive stops with the calendar's own error at an entry whose stored date is no day.
bool isCalendarError(const std::string& text) {
    return text.starts_with("Year is ") || text.starts_with("Month number ") ||
           text.starts_with("Day of month ");
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
        return {failure.what(), {}, {}};
    } catch (...) {
        return {"an unknown failure", {}, {}};
    }
}

} // namespace apps::kxvfs
