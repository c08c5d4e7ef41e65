#include <storage/vfs/TreeCopier.h>

#include <storage/vfs/StorableName.h>
#include <storage/vfs/src/LocalFile.h>
#include <storage/vfs/src/SafeTarget.h>

#include <foundation/storage/provider/Exception.h>

#include <algorithm>
#include <new>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace storage::vfs {

using namespace foundation::storage::provider;

namespace {

constexpr std::size_t bufferSize = 256 * 1024;

/// How many files of a container wait to be copied in the container's order, and how long their paths are in
/// all (UTF-16 code units): enough for nearly every archive at once, in some 20 MB.
constexpr std::size_t mostWaiting = 100'000;
constexpr std::size_t longestWaiting = 4'000'000;
/// Fewer files are not worth reading the container's directory once more.
constexpr std::size_t worthOrdering = 32;

std::vector<FolderEntry> entriesOf(IProvider& provider, const StorageIRI& folder) {
    std::vector<FolderEntry> entries;
    const auto listing = provider.listAll(folder);
    while (listing->hasNext()) {
        listing->next();
        entries.push_back(listing->current());
    }
    return entries;
}

void requireStorable(const StorageIRI& destination, bool folder) {
    if (const auto objection = unstorable(destination, folder))
        throw Exception(ErrorCode::InvalidArgument, destination, *objection);
}

std::string removalFailed(const std::exception& failure) {
    return std::string("the removal of what was copied of it failed: ") + failure.what();
}

} // namespace

StopCopying::~StopCopying() = default;

const char* StopCopying::what() const noexcept {
    return "the copy was stopped";
}

TreeCopier::TreeCopier(Options options) : m_options(std::move(options)), m_buffer(bufferSize) {}

bool TreeCopier::copyFile(const MountedContainer& from, const StorageIRI& source, const MountedContainer& to,
                          const StorageIRI& destination) {
    try {
        if (source == destination)
            throw Exception(ErrorCode::InvalidArgument, destination,
                            "source and destination are the same file");
        if (m_options.conflict == ConflictPolicy::KeepExisting && to.provider->isFile(destination))
            return true;
        copyBytes(from, source, to, destination);
        ++m_files;
        if (m_options.onCopied)
            m_options.onCopied(source, destination);
        return true;
    } catch (const StopCopying&) {
        throw;
    } catch (const std::exception&) {
        fail(source, destination);
        return false;
    }
}

std::uint64_t TreeCopier::copyInto(const MountedContainer& from, const StorageIRI& source,
                                   const MountedContainer& to, const StorageIRI& destination,
                                   fl::i18n::ustring_view name) {
    const auto failuresBefore = m_failures;
    const auto place = destination.child(name);
    if (const auto objection = SafeTarget(from, to).objection(source, place))
        refuse(source, place, *objection);
    else if (from.provider->isFolder(source))
        copyFolder(from, source, to, place);
    else
        copyFile(from, source, to, place);
    return m_failures - failuresBefore;
}

void TreeCopier::copyStream(ByteStream& in, const MountedContainer& to, const StorageIRI& destination,
                            const ByteStreamOpenOptions& options) {
    write(in, to, destination, options, destination, 0);
    ++m_files;
}

void TreeCopier::copyBytes(const MountedContainer& from, const StorageIRI& source, const MountedContainer& to,
                           const StorageIRI& destination) {
    // The source first: when it cannot be read, the destination must not be touched.
    const auto attributes = from.provider->getFileAttributes(source);
    const auto in = from.provider->openReadStream(source);
    write(*in, to, destination, ByteStreamOpenOptions::overwrite(), source, attributes.getSize().value_or(0));
    in->close();
    if (m_options.keepTimes && to.provider->hasFeature(Feature::SetLastModified) &&
        !attributes.getLastModified().is_special())
        to.provider->setLastModified(destination, attributes.getLastModified());
}

void TreeCopier::write(ByteStream& in, const MountedContainer& to, const StorageIRI& destination,
                       const ByteStreamOpenOptions& options, const StorageIRI& source, std::uint64_t size) {
    requireStorable(destination, false);
    // A container's provider may write what a stream got so far, also when it is not closed; so bytes that
    // change others are collected first, and a new file that is not complete is removed.
    const bool keepsUnclosed = !to.container.empty();
    const bool exists = keepsUnclosed && to.provider->isFile(destination);
    auto out = exists ? to.provider->openTransactionalStream(destination, options)
                      : to.provider->openStream(destination, options);
    try {
        pump(in, *out, source, size);
        out->close();
    } catch (...) {
        out.reset();
        if (keepsUnclosed && !exists)
            removeIncomplete(source, *to.provider, destination);
        throw;
    }
}

void TreeCopier::removeIncomplete(const StorageIRI& source, IProvider& provider,
                                  const StorageIRI& destination) {
    try {
        if (provider.isFile(destination))
            provider.removeFile(destination);
    } catch (const Exception& failure) {
        fail(source, destination, {failure.getErrorCode(), destination, removalFailed(failure)});
    } catch (const std::bad_alloc&) {
        fail(source, destination);
    } catch (const std::exception& failure) {
        // Containers let failures of their own formats pass.
        report({source, destination, std::make_exception_ptr(std::runtime_error(removalFailed(failure)))});
    }
}

void TreeCopier::pump(ByteStream& in, ByteStream& out, const StorageIRI& source, std::uint64_t size) {
    std::uint64_t copied = 0;
    for (;;) {
        const auto n = in.read(m_buffer.data(), static_cast<std::int64_t>(m_buffer.size()));
        if (n == 0)
            return;
        out.write(m_buffer.data(), n);
        copied += static_cast<std::uint64_t>(n);
        m_bytes += static_cast<std::uint64_t>(n);
        if (m_options.onProgress)
            m_options.onProgress({source, copied, size, m_files, m_bytes});
    }
}

bool TreeCopier::makeFolder(const StorageIRI& source, const MountedContainer& to,
                            const StorageIRI& destination) {
    try {
        requireStorable(destination, true);
        if (!to.provider->isFolder(destination))
            to.provider->createFolder(destination);
        return true;
    } catch (const std::exception&) {
        fail(source, destination);
        return false;
    }
}

std::uint64_t TreeCopier::copyFolder(const MountedContainer& from, const StorageIRI& source,
                                     const MountedContainer& to, const StorageIRI& destination) {
    const auto failuresBefore = m_failures;
    const SafeTarget target(from, to);
    std::vector<FolderPair> pending;
    try {
        if (source.isSameOrAbove(destination))
            throw Exception(ErrorCode::InvalidArgument, destination, "a folder cannot be copied into itself");
        pending.push_back({source, destination});
    } catch (const std::exception&) {
        fail(source, destination);
    }
    WaitingFiles waiting;
    waiting.top = destination;
    waiting.ordered = from.places && !isSameOrInside(to.container, from.container);
    // A list of folders instead of recursion: archives can nest folders deeper than the stack.
    while (!pending.empty()) {
        const auto folder = std::move(pending.back());
        pending.pop_back();
        if (!makeFolder(folder.source, to, folder.destination))
            continue;
        std::vector<FolderEntry> entries;
        try {
            entries = entriesOf(*from.provider, folder.source);
        } catch (const std::exception&) {
            fail(folder.source, folder.destination);
            continue;
        }
        const auto firstSubfolder = pending.size();
        waiting.folderIsNew = true;
        for (const auto& entry : entries) {
            if (!entry.isFolder()) {
                addWaiting(from, to, waiting, folder, entry.getName());
                continue;
            }
            FolderPair subfolder{folder.source.child(entry.getName()),
                                 folder.destination.child(entry.getName())};
            if (const auto objection = target.objection(subfolder.source, subfolder.destination))
                refuse(subfolder.source, subfolder.destination, *objection);
            else
                pending.push_back(std::move(subfolder));
        }
        std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(firstSubfolder), pending.end());
    }
    copyWaiting(from, to, waiting);
    return m_failures - failuresBefore;
}

void TreeCopier::addWaiting(const MountedContainer& from, const MountedContainer& to, WaitingFiles& waiting,
                            const FolderPair& folder, const fl::i18n::ustring& name) {
    if (waiting.folderIsNew)
        waiting.folders.push_back(folder);
    waiting.folderIsNew = false;
    waiting.names.push_back({waiting.folders.size() - 1, name});
    waiting.length += folder.source.getResolvedPath().size() + name.size();
    if (!waiting.ordered || waiting.names.size() >= mostWaiting || waiting.length >= longestWaiting)
        copyWaiting(from, to, waiting);
}

void TreeCopier::copyWaiting(const MountedContainer& from, const MountedContainer& to,
                             WaitingFiles& waiting) {
    const SafeTarget target(from, to);
    const FolderPair* last = nullptr;
    std::optional<std::string> folderObjection;
    for (const auto index : readingOrder(from, waiting)) {
        const auto& file = waiting.names[index];
        const auto& folder = waiting.folders[file.folder];
        const auto source = folder.source.child(file.name);
        const auto destination = folder.destination.child(file.name);
        // Other folders were written to since this one was made.
        if (waiting.ordered && &folder != last)
            folderObjection = target.objectionToFolder(waiting.top, folder.destination);
        last = &folder;
        if (folderObjection)
            refuse(source, destination, *folderObjection);
        else if (const auto objection = target.objection(source, destination))
            refuse(source, destination, *objection);
        else
            copyFile(from, source, to, destination);
    }
    waiting.folders.clear();
    waiting.names.clear();
    waiting.length = 0;
    waiting.folderIsNew = true;
}

std::vector<std::size_t> TreeCopier::readingOrder(const MountedContainer& from, const WaitingFiles& waiting) {
    std::vector<std::size_t> order(waiting.names.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    if (!waiting.ordered || order.size() < worthOrdering)
        return order;
    std::vector<fl::i18n::ustring> paths;
    paths.reserve(order.size());
    for (const auto& file : waiting.names)
        paths.push_back(waiting.folders[file.folder].source.child(file.name).getResolvedPath());
    const auto places = from.places->of(paths);
    std::ranges::stable_sort(order, {}, [&](std::size_t index) { return places[index]; });
    return order;
}

void TreeCopier::refuse(const StorageIRI& source, const StorageIRI& destination,
                        const std::string& objection) {
    fail(source, destination, {ErrorCode::InvalidArgument, source, objection});
}

void TreeCopier::fail(const StorageIRI& source, const StorageIRI& destination) {
    report({source, destination, std::current_exception()});
}

void TreeCopier::fail(const StorageIRI& source, const StorageIRI& destination, const Exception& error) {
    report({source, destination, std::make_exception_ptr(error)});
}

void TreeCopier::report(const CopyFailure& failure) {
    ++m_failures;
    if (m_options.onFailure)
        m_options.onFailure(failure);
}

} // namespace storage::vfs
