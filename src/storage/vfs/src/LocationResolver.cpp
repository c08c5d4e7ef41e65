#include <storage/vfs/LocationResolver.h>

#include <storage/vfs/src/LocalFile.h>
#include <storage/vfs/src/PathText.h>
#include <storage/vfs/src/TypedPath.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>

#include <span>
#include <stdexcept>
#include <vector>

namespace storage::vfs {

using namespace foundation::storage::provider;
using fl::i18n::ustring;
using fl::i18n::ustring_view;

namespace {

constexpr std::string_view containerScheme = "zip";

/// Whether a text is an IRI: one scheme or more and then a path. One letter is a drive.
bool looksLikeIri(std::string_view text) {
    bool schemes = false;
    for (;;) {
        std::size_t end = 0;
        while (end < text.size() &&
               (std::isalnum(static_cast<unsigned char>(text[end])) ||
                (end > 0 && std::string_view("+-.").find(text[end]) != std::string_view::npos)))
            ++end;
        if (end < 2 || end == text.size() || text[end] != ':')
            return schemes && text.starts_with('/');
        schemes = true;
        text.remove_prefix(end + 1);
    }
}

bool endsInMark(ustring_view component) {
    return component.size() > 1 && component.back() == u'!';
}

/// Where the walk from the left arrived: a place, and how it has to be read.
struct Arrival {
    StorageIRI place;
    /// The place is a regular file and the text says that its inside is meant: it ended in "/" or "!".
    bool insideMeant = false;
    /// The place is a file and the last component of the text.
    bool atFile = false;
    /// Components that lead on inside the file at `place`; empty where the text was used up.
    std::span<const ustring_view> rest;
};

/// Follows `path` below `folder` in one provider, up to the first component that is a file.
Arrival walk(IProvider& provider, const StorageIRI& folder, std::span<const ustring_view> path,
             bool slashAtEnd) {
    auto place = folder;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const auto next = place.child(path[i]);
        const auto rest = path.subspan(i + 1);
        if (provider.isFolder(next)) {
            place = next;
            continue;
        }
        if (provider.isFile(next))
            return {next, rest.empty() && slashAtEnd, rest.empty(), rest};
        if (endsInMark(path[i])) {
            const auto unmarked = place.child(path[i].substr(0, path[i].size() - 1));
            if (provider.isFile(unmarked))
                return {unmarked, rest.empty(), rest.empty(), rest};
        }
        for (const auto component : path.subspan(i))
            place = place.child(component);
        return {place, false, false, {}};
    }
    return {place, false, false, {}};
}

StorageIRI parseIri(std::string_view text) {
    try {
        return StorageIRI::parse(text);
    } catch (const std::invalid_argument& failure) {
        throw Exception(ErrorCode::InvalidArgument, StorageIRI(), failure.what());
    }
}

StorageIRI rootInside(const StorageIRI& container) {
    return StorageIRI::inContainer(containerScheme, container, u"/");
}

} // namespace

LocationResolver::LocationResolver(Vfs& vfs) : m_vfs(vfs) {}

Location LocationResolver::resolve(std::string_view typed, FileMeaning meaning) const {
    if (typed.empty())
        throw Exception(ErrorCode::InvalidArgument, StorageIRI(), "the path is empty");
    Location location{{}, std::string(typed), typed.ends_with('/')};
    if (looksLikeIri(typed)) {
        location.iri = parseIri(typed);
        if (location.iri.hasContainer() && location.iri.getResolvedPath().empty())
            location.iri = location.iri.withPath(u"/");
        return location;
    }

    location.folderMeant = endsLikeFolder(typed);
    const auto path = typedPath(typed);
    const auto steps = components(path.path);
    auto folder = path.root;
    std::span<const ustring_view> rest(steps);
    bool local = true;
    for (;;) {
        const auto provider = m_vfs.mount(folder, Tolerance::Damaged).provider;
        const auto arrival = walk(*provider, folder, rest, location.folderMeant);
        location.iri = arrival.place;
        if (!arrival.rest.empty()) {
            folder = rootInside(arrival.place);
            rest = arrival.rest;
            local = false;
            continue;
        }
        const bool inside =
            arrival.insideMeant ||
            (arrival.atFile && (meaning == FileMeaning::Folder ? local || m_vfs.isContainer(arrival.place)
                                                               : meaning == FileMeaning::FolderIfArchive &&
                                                                     m_vfs.isContainer(arrival.place)));
        if (inside)
            location.iri = rootInside(arrival.place);
        return location;
    }
}

std::optional<StorageIRI> LocationResolver::localContainer(std::string_view typed, bool finalFile) const {
    if (looksLikeIri(typed)) {
        const auto iri = parseIri(typed);
        return iri.hasContainer() || finalFile ? std::optional(localFileUnder(iri)) : std::nullopt;
    }
    const auto path = typedPath(typed);
    const auto steps = components(path.path);
    const auto arrival = walk(*m_vfs.mount(path.root).provider, path.root, steps, endsLikeFolder(typed));
    if (!arrival.rest.empty() || arrival.insideMeant || (arrival.atFile && finalFile))
        return arrival.place;
    return std::nullopt;
}

Location LocationResolver::resolveInside(std::string_view archive, std::string_view innerPath) const {
    const auto root = resolve(archive, FileMeaning::Folder).iri;
    // Mounting says what is wrong with a local file that is no archive.
    const auto provider = m_vfs.mount(root, Tolerance::Damaged).provider;
    if (!root.hasContainer() || !normalizedPath(root.getResolvedPath()).empty()) {
        if (provider->isFolder(root))
            throw Exception(ErrorCode::InvalidArgument, root, "is a folder, not an archive");
        if (provider->isFile(root))
            throw Exception(ErrorCode::ContainerUnreadable, root, "not a ZIP archive");
        throw Exception(ErrorCode::NotFound, root, "there is no such archive");
    }
    return inside(root, innerPath);
}

Location LocationResolver::inside(const StorageIRI& root, std::string_view innerPath) {
    const auto path = normalizedPath(fl::i18n::fromUtf8(innerPath));
    return {root.withPath(path.empty() ? ustring_view(u"/") : path), std::string(innerPath),
            innerPath.ends_with('/')};
}

} // namespace storage::vfs
