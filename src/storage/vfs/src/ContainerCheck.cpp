#include <storage/vfs/src/ContainerCheck.h>

#include <fmt/format.h>
#include <foundation/storage/provider/Exception.h>

#include <algorithm>

namespace storage::vfs {

using namespace foundation::storage::provider;

bool isCheckedFormat(const std::string& scheme) {
    return scheme == "zip";
}

void checkContainer(const StorageItem& container, MountedContainer& mounted) {
    auto absolute = std::make_shared<std::vector<fl::i18n::ustring>>();
    const auto stream = container.openReadOnlyStream();
    mounted.summary = readArchiveDirectory(*stream, [&](const ArchiveEntryRecord& record) {
        if (record.name.starts_with('/'))
            absolute->push_back(record.path());
    });
    std::sort(absolute->begin(), absolute->end());
    mounted.absoluteEntries = std::move(absolute);
}

void refuseUnfit(const StorageIRI& container, const ArchiveSummary& summary, Tolerance tolerance) {
    if (summary.condition == ArchiveCondition::NotAnArchive)
        throw Exception(ErrorCode::ContainerUnreadable, container,
                        fmt::format("not a ZIP archive: {}", summary.cause));
    if (summary.condition == ArchiveCondition::Damaged && tolerance == Tolerance::Sound)
        throw Exception(ErrorCode::ContainerUnreadable, container,
                        fmt::format("damaged ZIP archive: {}", summary.cause));
}

} // namespace storage::vfs
