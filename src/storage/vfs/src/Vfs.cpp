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

/// The location under which a container is known, or the location itself where what leads to it is gone.
StorageIRI knownOrSame(ContainerTable& containers, const StorageIRI& location) {
    try {
        return containers.knownLocation(containers.canonicalLocation(location));
    } catch (const Exception&) {
        return location;
    }
}

void writeEmptyArchive(IProvider& provider, const StorageIRI& location) {
    std::array<char, records::endSize> end{};
    for (std::size_t i = 0; i < 4; ++i)
        end[i] = static_cast<char>((records::endSignature >> (8 * i)) & 0xffU);
    const auto stream = provider.openStream(location, ByteStreamOpenOptions::overwrite());
    stream->write(end.data(), static_cast<std::int64_t>(end.size()));
    stream->close();
}

/// Another try would find a file that exists. What another program has put there meanwhile stays.
void removeUnfinished(IProvider& provider, const StorageIRI& location) noexcept {
    try {
        if (const auto size = provider.getFileAttributes(location).getSize();
            size && *size <= records::endSize)
            provider.removeFile(location);
    } catch (...) {
        // The failure that is reported is the one that led here.
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
    if (provider->exists(location))
        throw Exception(ErrorCode::AlreadyExists, location);
    // A container may keep a new entry whose saving failed. Of local files only what was made here is known
    // not to be another program's.
    bool mayBeLeft = location.hasContainer();
    try {
        provider->createFile(location);
        mayBeLeft = true;
        writeEmptyArchive(*provider, location);
    } catch (const Exception& failure) {
        if (mayBeLeft && failure.getErrorCode() != ErrorCode::AlreadyExists)
            removeUnfinished(*provider, location);
        throw;
    } catch (...) {
        if (mayBeLeft)
            removeUnfinished(*provider, location);
        throw;
    }
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
    m_impl->containers.markUnsaved(knownOrSame(m_impl->containers, container));
}

void Vfs::discard(const StorageIRI& container) {
    m_impl->containers.discard(knownOrSame(m_impl->containers, container));
}

void Vfs::watchContainers(SaveProgressCallback callback) {
    m_impl->watch->set(std::move(callback));
}

std::vector<CloseFailure> Vfs::forget(const StorageIRI& container) {
    return m_impl->containers.close(knownOrSame(m_impl->containers, container),
                                    ContainerTable::Scope::SameAndInside);
}

std::vector<CloseFailure> Vfs::forgetInside(const StorageIRI& container) {
    return m_impl->containers.close(knownOrSame(m_impl->containers, container),
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
