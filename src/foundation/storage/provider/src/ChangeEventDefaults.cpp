#include "ChangePoller.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <utility>

namespace foundation::storage::provider {

namespace {

void checkListener(const ChangeListener& listener, const StorageIRI& location) {
    if (!listener) {
        throw Exception(ErrorCode::InvalidArgument, location, "there is no change listener to call");
    }
}

} // namespace

void IProvider::doPublishFolderEventsFor(const StorageIRI& folder, ChangeListener listener) {
    checkListener(listener, folder);
    m_changePoller->watch(folder, detail::ChangePoller::Target::Folder, std::move(listener));
}

void IProvider::doPublishFileEventsFor(const StorageIRI& file, ChangeListener listener) {
    checkListener(listener, file);
    m_changePoller->watch(file, detail::ChangePoller::Target::File, std::move(listener));
}

void IProvider::doStopPublishingEventsFor(const StorageIRI& location) {
    m_changePoller->unwatch(location);
}

void IProvider::doStartChangePollingMechanism(std::chrono::milliseconds interval) {
    if (interval < std::chrono::milliseconds(1)) {
        throw Exception(ErrorCode::InvalidArgument, StorageIRI(), "the polling interval is below 1 ms");
    }
    m_changePoller->start(interval);
}

void IProvider::doStopChangePollingMechanism() {
    m_changePoller->stop();
}

void IProvider::doShutdown() {
    doStopChangePollingMechanism();
    m_changePoller->unwatchAll();
}

} // namespace foundation::storage::provider
