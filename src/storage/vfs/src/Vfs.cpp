#include <storage/vfs/Vfs.h>

#include <storage/vfs/src/BundleLoader.h>
#include <storage/vfs/src/ContainerTable.h>
#include <storage/vfs/src/ZipRecords.h>

#include <foundation/log/log.h>
#include <foundation/storage/provider/Exception.h>
#include <microservices/ComponentRuntime.h>
#include <storage/fileprovider/LocalFileProvider.h>

#include <algorithm>
#include <array>

namespace storage::vfs {

using namespace foundation::storage::provider;

namespace {

/// The canonical location, or the location itself where what leads to it is gone.
StorageIRI canonicalOrSame(ContainerTable& containers, const StorageIRI& location) {
    try {
        return containers.canonicalLocation(location);
    } catch (const Exception&) {
        return location;
    }
}

} // namespace

struct Vfs::Impl {
    explicit Impl(Options options)
        : logger("storage::vfs::Vfs"), bundles(std::move(options.bundleFolders), std::move(options.warn)),
          containers(bundles, localFiles(options, options.durableFiles), localFiles(options, true), watch) {}

    static std::shared_ptr<IProvider> localFiles(const Options& options, bool durable) {
        if (options.localFiles)
            return options.localFiles;
        storage::fileprovider::LocalFileOptions local;
        local.sync = durable;
        return storage::fileprovider::LocalFileProvider::create(local);
    }

    foundation::log::basic_diagnostic_logger logger;
    BundleLoader bundles;
    const std::shared_ptr<ContainerWatch> watch = std::make_shared<ContainerWatch>();
    ContainerTable containers;
};

Vfs::Vfs() : Vfs(Options{}) {}

Vfs::Vfs(Options options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

Vfs::~Vfs() {
    try {
        for (const auto& failure : closeAll())
            KX_LOG(m_impl->logger) << " container=" << failure.container.toUtf8()
                                   << " lost=" << failure.cause;
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

MountedContainer Vfs::mount(const StorageIRI& location, Tolerance tolerance) {
    return m_impl->containers.mount(location, tolerance);
}

StorageIRI Vfs::canonicalLocation(const StorageIRI& location) {
    return m_impl->containers.canonicalLocation(location);
}

StorageItem Vfs::item(const StorageIRI& location, Tolerance tolerance) {
    return {mount(location, tolerance).provider, location};
}

bool Vfs::isContainer(const StorageIRI& file) {
    const auto place = item(file, Tolerance::Damaged);
    if (!place.exists())
        return false;
    const auto stream = place.openReadOnlyStream();
    const auto condition = readArchiveDirectory(*stream).condition;
    return condition == ArchiveCondition::Sound || condition == ArchiveCondition::Damaged;
}

void Vfs::createArchive(const StorageIRI& location) {
    const auto provider = mount(location).provider;
    provider->createFile(location);
    std::array<char, records::endSize> end{};
    for (std::size_t i = 0; i < 4; ++i)
        end[i] = static_cast<char>((records::endSignature >> (8 * i)) & 0xffU);
    const auto stream = provider->openStream(location, ByteStreamOpenOptions::overwrite());
    stream->write(end.data(), static_cast<std::int64_t>(end.size()));
    stream->close();
}

void Vfs::close(const StorageIRI& container) {
    const auto failures = forget(container);
    if (!failures.empty())
        std::rethrow_exception(failures.front().error);
}

std::vector<CloseFailure> Vfs::closeAll() {
    return m_impl->containers.closeAll();
}

void Vfs::markUnsaved(const StorageIRI& container) {
    m_impl->containers.markUnsaved(canonicalOrSame(m_impl->containers, container));
}

void Vfs::discard(const StorageIRI& container) {
    m_impl->containers.discard(canonicalOrSame(m_impl->containers, container));
}

void Vfs::watchContainers(SaveProgressCallback callback) {
    m_impl->watch->set(std::move(callback));
}

std::vector<CloseFailure> Vfs::forget(const StorageIRI& container) {
    return m_impl->containers.close(canonicalOrSame(m_impl->containers, container),
                                    ContainerTable::Scope::SameAndInside);
}

std::vector<CloseFailure> Vfs::forgetInside(const StorageIRI& container) {
    return m_impl->containers.close(canonicalOrSame(m_impl->containers, container),
                                    ContainerTable::Scope::Inside);
}

std::vector<BundleReport> Vfs::bundles() {
    return m_impl->bundles.reports();
}

std::vector<std::string> Vfs::schemes() {
    auto schemes = m_impl->bundles.schemes();
    schemes.insert(std::lower_bound(schemes.begin(), schemes.end(), "file"), "file");
    return schemes;
}

std::string Vfs::componentRuntime() {
    return microservices::componentRuntimeName();
}

} // namespace storage::vfs
