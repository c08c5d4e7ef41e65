#include <storage/mount/src/Rescue.h>

#include <storage/mount/src/Places.h>
#include <storage/mount/src/SystemFailure.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/ChangeSession.h>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;
namespace fs = std::filesystem;

namespace {

fs::path unusedName(const fs::path& folder, const std::string& name) {
    for (unsigned number = 1;; ++number) {
        auto file =
            folder / (number == 1 ? name + ".rescued.zip" : fmt::format("{}.rescued-{}.zip", name, number));
        if (!fs::exists(fs::symlink_status(file)))
            return file;
    }
}

void fill(vfs::Vfs& vfs, Contents& contents, const std::vector<NodePtr>& files, const StorageIRI& archive) {
    vfs.createArchive(archive);
    const auto root = StorageIRI::inContainer("zip", archive, u"/");
    vfs::ChangeSession session(vfs);
    session.lock({root});
    const auto provider = session.changing(root);
    for (const auto& file : files) {
        const auto place = root.withPath(fl::i18n::fromUtf8(Tree::pathOf(*file)));
        provider->createFolderRecursive(place.parent());
        const auto stream = provider->openStream(place, ByteStreamOpenOptions::overwrite());
        contents.copyTo(*file, *stream);
        stream->close();
    }
    for (const auto& failure : session.commit())
        std::rethrow_exception(failure.error);
}

} // namespace

fs::path rescue(vfs::Vfs& vfs, Contents& contents, const std::vector<NodePtr>& files, const std::string& name,
                const std::vector<fs::path>& folders, const std::function<void(const std::string&)>& warn) {
    for (const auto& folder : folders) {
        fs::path archive;
        try {
            fs::create_directories(folder);
            archive = unusedName(folder, name);
            // What is short of room is, as often as not, the folder of temporary files.
            const TemporaryFolderInUse temporary(folder);
            fill(vfs, contents, files, StorageIRI::fromLocalPath(archive.u16string()));
            return archive;
        } catch (...) {
            warn(fmt::format("cannot rescue the changes into {}: {}", folder.string(),
                             causeOf(std::current_exception())));
            std::error_code ignored;
            if (!archive.empty())
                fs::remove(archive, ignored);
        }
    }
    return {};
}

std::vector<fs::path> rescueFolders(const fs::path& archive) {
    std::vector<fs::path> folders;
    if (archive.has_parent_path())
        folders.push_back(archive.parent_path());
    if (auto state = stateFolder(); !state.empty())
        folders.push_back(std::move(state));
    std::error_code failure;
    // The folder for temporary files is this process's own and goes with it.
    if (const auto temporary = fs::temp_directory_path(failure); !failure)
        folders.push_back((temporary / ".").parent_path().parent_path());
    folders.emplace_back("/var/tmp");
    return folders;
}

} // namespace storage::mount
