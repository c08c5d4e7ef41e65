#include <storage/vfs/EntryPlaces.h>

#include <storage/vfs/ArchiveDirectory.h>

#include <unordered_map>

namespace storage::vfs {

using namespace foundation::storage::provider;

EntryPlaces::EntryPlaces(StorageItem archive) : m_archive(std::move(archive)) {}

std::vector<std::uint64_t> EntryPlaces::of(const std::vector<fl::i18n::ustring>& paths) const {
    std::vector<std::uint64_t> places(paths.size(), unknown);
    std::unordered_map<fl::i18n::ustring_view, std::size_t> wanted;
    wanted.reserve(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i)
        wanted.emplace(paths[i], i);
    try {
        const auto stream = m_archive.openReadOnlyStream();
        readArchiveDirectory(*stream, [&](const ArchiveEntryRecord& record) {
            // Of two entries with one name, the first is the one that is shown.
            const auto found = wanted.find(record.path());
            if (found != wanted.end() && places[found->second] == unknown)
                places[found->second] = record.localHeader;
        });
    } catch (const std::exception&) {
        // Whoever reads the files meets the same failure and tells of it.
    }
    return places;
}

} // namespace storage::vfs
