#pragma once

#include "WorkingFileEntry.h"

#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/storage/provider/ByteStream.h>

#include <boost/iostreams/device/file.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace storage::zipprovider {

/// The stream that the host gets for an open entry. It works on the entry's working file, so other streams on
/// the entry see at once what is written. The first close of a writable stream calls the close listener,
/// which may rebuild the archive; a failure of that is close()'s. A writable stream that is destroyed without
/// having been closed, or whose write has failed, calls the abandon listener instead; close() reports the
/// failure of the write once more then. Errors: FsysExceptionBase for the working file.
/// Threads: one at a time; two concurrent closes notify once.
class WorkingFileByteStream final : public foundation::storage::provider::ByteStream {
public:
    using Listener = std::function<void()>;

    /// Opens the working file of `entry` with standard open-mode flags.
    /// Errors: WorkingEntryOpenException; FsysExceptionBase when the working file cannot be made.
    WorkingFileByteStream(std::shared_ptr<WorkingFileEntry> entry, int openMode);
    ~WorkingFileByteStream() override;

    /// Stores what the first close of a writable stream calls. A writable stream needs one before it is
    /// closed.
    template <typename Callable>
    void addCloseListener(Callable&& listener) {
        m_closeListener = std::forward<Callable>(listener);
    }
    /// Stores what is called when a writable stream goes without having been closed.
    template <typename Callable>
    void addAbandonListener(Callable&& listener) {
        m_abandonListener = std::forward<Callable>(listener);
    }

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin direction) override;
    void doClose() override;

private:
    [[noreturn]] void fail(const char* operation, int cause);

    const std::shared_ptr<WorkingFileEntry> m_entry;
    WorkingFileDevice m_device;
    bool m_writable = false;
    /// Exchanged so that of several closes only the first one closes the device and notifies.
    std::atomic<bool> m_closed = false;
    Listener m_closeListener;
    Listener m_abandonListener;
    /// The system's error of the last write that failed; 0 when none has.
    int m_writeFailure = 0;
    foundation::log::basic_diagnostic_logger m_logger;
};

} // namespace storage::zipprovider
