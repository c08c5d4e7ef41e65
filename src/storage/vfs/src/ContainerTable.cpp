#include <storage/vfs/src/ContainerTable.h>

#include <storage/vfs/src/ContainerCheck.h>
#include <storage/vfs/src/LocalFile.h>
#include <storage/vfs/src/WriteHold.h>

#include <fmt/format.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IFlushable.h>
#include <foundation/storage/provider/StorageItem.h>
#include <storage/fileprovider/FileNumber.h>

#include <algorithm>

namespace storage::vfs {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;
using storage::fileprovider::numberOfLinkedFile;

ContainerTable::ContainerTable(BundleLoader& bundles, std::shared_ptr<IProvider> localFiles,
                               std::shared_ptr<IProvider> localContainers,
                               std::shared_ptr<const ContainerWatch> watch)
    : m_bundles(bundles), m_localFiles(std::move(localFiles)), m_localContainers(std::move(localContainers)),
      m_watch(std::move(watch)) {}

MountedContainer ContainerTable::mount(const StorageIRI& location, Tolerance tolerance) {
    const MutexLock lock(m_mutex);
    return mountLocked(location, tolerance);
}

StorageIRI ContainerTable::canonicalLocation(const StorageIRI& location) {
    const MutexLock lock(m_mutex);
    return canonicalLocked(location);
}

MountedContainer ContainerTable::mountLocked(const StorageIRI& location, Tolerance tolerance) {
    if (!location.hasContainer()) {
        if (location.getScheme() != "file")
            throw Exception(ErrorCode::InvalidArgument, location,
                            fmt::format("no provider serves the scheme \"{}\"", location.getScheme()));
        MountedContainer local;
        local.provider = m_localFiles;
        local.summary.condition = ArchiveCondition::Sound;
        return local;
    }
    const auto container = knownLocked(canonicalLocked(location.getContainer()));
    const auto root = StorageIRI::inContainer(location.getScheme(), container, u"/");
    auto known = m_entries.find(root);
    if (known == m_entries.end())
        known = m_entries.emplace(root, makeEntry(root, tolerance)).first;
    refuseUnfit(container, known->second.mounted.summary, tolerance);
    return known->second.mounted;
}

ContainerTable::Entry ContainerTable::makeEntry(const StorageIRI& root, Tolerance tolerance) {
    const auto& container = root.getContainer();
    const auto factory = m_bundles.factory(root.getScheme());
    if (!factory)
        throw Exception(ErrorCode::InvalidArgument, root,
                        fmt::format("no provider serves the scheme \"{}\"", root.getScheme()));
    const auto outer = mountLocked(container, tolerance);
    const auto storage = std::make_shared<WatchedStorage>(
        container.hasContainer() ? outer.provider : m_localContainers, m_watch);
    const StorageItem item(storage, container);
    if (!item.exists())
        throw Exception(ErrorCode::NotFound, container);
    Entry entry{root, storage, {}, false};
    entry.mounted.container = container;
    entry.mounted.summary.condition = ArchiveCondition::Sound;
    if (isCheckedFormat(root.getScheme())) {
        checkContainer(item, entry.mounted);
        refuseUnfit(container, entry.mounted.summary, tolerance);
        if (!container.hasContainer())
            entry.mounted.places = std::make_shared<EntryPlaces>(item);
    }
    entry.mounted.provider = factory->createProvider(item);
    return entry;
}

StorageIRI ContainerTable::canonicalLocked(const StorageIRI& location) {
    const auto mounted = mountLocked(location, Tolerance::Damaged);
    if (!location.hasContainer())
        return mounted.provider->getCanonicalLocation(location);
    return mounted.provider->getCanonicalLocation(
        StorageIRI::inContainer(location.getScheme(), mounted.container, location.getResolvedPath()));
}

StorageIRI ContainerTable::knownLocation(const StorageIRI& container) {
    const MutexLock lock(m_mutex);
    return knownLocked(container);
}

StorageIRI ContainerTable::knownLocked(const StorageIRI& container) {
    const auto number = container.hasContainer() ? std::nullopt : numberOfLinkedFile(container);
    if (!number)
        return container;
    for (const auto& [root, entry] : m_entries) {
        const auto& known = entry.mounted.container;
        if (!known.hasContainer() && (known == container || numberOfLinkedFile(known) == number))
            return known;
    }
    return container;
}

void ContainerTable::markUnsaved(const StorageIRI& container) {
    const MutexLock lock(m_mutex);
    for (auto& [root, entry] : m_entries)
        if (entry.mounted.container == container)
            entry.unsaved = true;
}

std::vector<ContainerTable::Entry> ContainerTable::take(const StorageIRI& container, Scope scope) {
    const MutexLock lock(m_mutex);
    std::vector<Entry> taken;
    for (auto at = m_entries.begin(); at != m_entries.end();) {
        const auto& held = at->second.mounted.container;
        const bool inScope =
            held == container ? scope == Scope::SameAndInside : isSameOrInside(held, container);
        if (inScope)
            taken.push_back(std::move(at->second));
        at = inScope ? m_entries.erase(at) : std::next(at);
    }
    std::stable_sort(taken.begin(), taken.end(),
                     [](const Entry& a, const Entry& b) { return nesting(a.root) > nesting(b.root); });
    return taken;
}

void ContainerTable::discard(const StorageIRI& container) {
    for (const auto& entry : take(container, Scope::SameAndInside))
        entry.storage->cutOff();
}

std::vector<CloseFailure> ContainerTable::release(std::vector<Entry> entries) {
    std::vector<CloseFailure> failures;
    for (auto& entry : entries) {
        try {
            if (auto* flushable = dynamic_cast<IFlushable*>(entry.mounted.provider.get()))
                flushable->flush();
            else if (entry.unsaved)
                holdWrites(*entry.mounted.provider, entry.root)->close();
        } catch (const std::exception& failure) {
            failures.push_back({entry.mounted.container, failure.what(), std::current_exception()});
            // Its end would save once more, and change a container that is reported as unsaved.
            if (entry.mounted.provider.use_count() == 1)
                entry.storage->cutOff();
        }
        entry.mounted.provider.reset();
        // These hold the provider of the container around.
        entry.mounted.places.reset();
        entry.storage.reset();
    }
    return failures;
}

std::vector<CloseFailure> ContainerTable::close(const StorageIRI& container, Scope scope) {
    return release(take(container, scope));
}

std::vector<CloseFailure> ContainerTable::closeAll() {
    std::vector<Entry> all;
    {
        const MutexLock lock(m_mutex);
        for (auto& [root, entry] : m_entries)
            all.push_back(std::move(entry));
        m_entries.clear();
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Entry& a, const Entry& b) { return nesting(a.root) > nesting(b.root); });
    return release(std::move(all));
}

} // namespace storage::vfs
