#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Progress.h>

#include <CLI/CLI.hpp>
#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <storage/vfs/ArchiveDirectory.h>

#include <unordered_set>
#include <vector>
#include <zlib.h>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using namespace storage::vfs;

namespace {

constexpr std::uint16_t stored = 0;
constexpr std::uint16_t deflated = 8;

/// Why an entry cannot even be tried; empty where it can.
std::string obstacle(const ArchiveEntryRecord& record, bool pathTaken) {
    if (record.path().empty())
        return "the entry has no name";
    if (record.name.find('\0') != std::string::npos)
        return "the name holds a NUL, which an archive cannot store";
    if (pathTaken)
        return "an earlier entry has the same name and hides this one";
    if (!record.hasValidDate())
        return "the stored date is no day of the calendar";
    if (record.isEncrypted())
        return "the entry is encrypted";
    if (record.method != stored && record.method != deflated)
        return fmt::format("compression method {} is not supported", record.method);
    return {};
}

class Check : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_option("ARCHIVE", m_archives, "The archives to check")->required();
    }

    void run(Session& session) override {
        for (const auto& typed : m_archives)
            session.attempt(typed, [&] { checkArchive(session, typed); });
    }

private:
    void checkArchive(Session& session, const std::string& typed) {
        const auto location = session.resolver().resolve(typed, FileMeaning::File);
        const auto root = rootOf(session, location.iri);
        const auto container = root.hasContainer() ? root.getContainer() : root;
        if (!root.hasContainer())
            throw CommandError(ErrorCode::InvalidArgument, "is a folder, not an archive");
        const auto mounted = session.mount(root, typed);
        CopyProgressBar progress(session.progressWanted());
        Tally tally{session, *mounted.provider, root, typed, progress, true, {}, 0, 0};
        tally.listable = session.attempt(typed, [&] { mounted.provider->listAll(root); });
        tally.problems += tally.listable ? 0 : 1;
        // Other streams are opened while this one walks the directory: the container is opened for each.
        const auto stream = session.vfs().item(container, Tolerance::Damaged).openReadOnlyStream();
        const auto summary =
            readArchiveDirectory(*stream, [&](const ArchiveEntryRecord& record) { tally.add(record); });
        const auto problems = tally.problems + (summary.condition == ArchiveCondition::Damaged ? 1 : 0);
        progress.finish();
        if (!session.out().isJson())
            session.out().line(fmt::format(
                "{}: {}, {}", session.out().name(typed), counted(summary.entries, "entry", "entries"),
                problems == 0 ? "no problems" : counted(problems, "problem", "problems")));
    }

    /// The root inside the archive that a location means, whichever way it was typed.
    static StorageIRI rootOf(Session& session, const StorageIRI& iri) {
        if (iri.hasContainer() && (iri.getResolvedPath().empty() || iri.getResolvedPath() == u"/"))
            return iri;
        if (session.vfs().mount(iri, Tolerance::Damaged).provider->isFolder(iri))
            return iri.hasContainer()
                       ? throw CommandError(ErrorCode::InvalidArgument, "is a folder, not an archive")
                       : iri;
        return StorageIRI::inContainer("zip", iri, u"/");
    }

    struct Tally {
        Session& session;
        IProvider& provider;
        const StorageIRI& root;
        const std::string& shownArchive;
        CopyProgressBar& progress;
        /// Where the provider cannot even list the archive, no entry can be read and one message says so.
        bool listable;
        std::unordered_set<fl::i18n::ustring> paths;
        std::uint64_t files;
        std::uint64_t problems;

        void add(const ArchiveEntryRecord& record) {
            const auto path = record.path();
            const auto shown =
                joinShown(shownArchive, fl::i18n::toUtf8(path.empty() ? path : path.substr(1)));
            const bool taken = !paths.insert(path).second && !record.isFolder();
            try {
                if (const auto reason = obstacle(record, taken); !reason.empty())
                    throw CommandError(ErrorCode::ContainerUnreadable, reason);
                if (!record.isFolder() && listable)
                    read(record, root.withPath(path));
                ok(record, path);
            } catch (const OutputError&) {
                throw;
            } catch (...) {
                ++problems;
                session.fail(shown);
            }
        }

        void read(const ArchiveEntryRecord& record, const StorageIRI& iri) {
            std::vector<char> buffer(256 * 1024);
            const auto stream = provider.openReadStream(iri);
            uLong crc = crc32(0, nullptr, 0);
            std::uint64_t size = 0;
            while (const auto n = stream->read(buffer.data(), static_cast<std::int64_t>(buffer.size()))) {
                crc = crc32(crc, reinterpret_cast<const Bytef*>(buffer.data()), static_cast<uInt>(n));
                size += static_cast<std::uint64_t>(n);
                progress.update({iri, size, record.size, files, size});
            }
            ++files;
            if (size != record.size)
                throw CommandError(ErrorCode::ContainerUnreadable,
                                   fmt::format("holds {} bytes, {} are declared", size, record.size));
            if (crc != record.crc32)
                throw CommandError(ErrorCode::ContainerUnreadable,
                                   fmt::format("CRC-32 is {:08x}, {:08x} is declared", crc, record.crc32));
        }

        std::string modifiedAt(const ArchiveEntryRecord& record, const StorageIRI& iri) const {
            return isoTime(record.isFolder() ? provider.getFolderAttributes(iri).getLastModified()
                                             : provider.getFileAttributes(iri).getLastModified());
        }

        void ok(const ArchiveEntryRecord& record, const fl::i18n::ustring& path) const {
            if (!session.out().isJson())
                return;
            nlohmann::ordered_json object;
            object["path"] = root.withPath(path).toUtf8();
            object["type"] = record.isFolder() ? "folder" : "file";
            object["size"] =
                record.isFolder() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(record.size);
            const auto modified = listable ? modifiedAt(record, root.withPath(path)) : std::string();
            object["modified"] =
                modified.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(modified);
            object["crc32"] = fmt::format("{:08x}", record.crc32);
            session.out().object(object);
        }
    };

    std::vector<std::string> m_archives;
};

} // namespace

const CommandRow checkRow{
    "check", "ARCHIVE...", "Read every entry and compare it with what the archive declares",
    "Reads each file of the archive and compares its size and CRC-32 with the central "
    "directory. Reports what\n"
    "differs, what cannot be read, and what would not be carried over when the archive "
    "is written: encrypted\n"
    "entries, other compression methods than stored and deflated, impossible dates, "
    "names that hold a NUL,\n"
    "entries hidden by an earlier one of the same name. The exit status is 1 if there is any.",
    &makeCommand<Check>};

} // namespace apps::kxvfs
