#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>
#include <apps/kxvfs/src/Copying.h>
#include <apps/kxvfs/src/StandardInput.h>

#include <CLI/CLI.hpp>

#include <vector>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

constexpr std::string_view standardStream = "-";

class Cp : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-r,-R,--recursive", m_copying.recursive, "Copy folders with all in them");
        app.add_flag("-n,--no-clobber", m_copying.keepExisting, "Leave files that exist as they are");
        app.add_flag("-p,--preserve-times", m_copying.keepTimes,
                     "Give local copies the time of their source");
        app.add_flag("-T,--no-target-directory", m_copying.exactTarget,
                     "Copy to exactly DEST, also where it is a folder or an archive");
        app.add_option("--from", m_from, "Take the sources as paths inside this archive, literally")
            ->type_name("ARCHIVE");
        app.add_option("--into", m_into, "Take DEST as a path inside this archive, literally")
            ->type_name("ARCHIVE");
        app.add_option("-a,--archive", m_archive, "Both of these, for copies inside one archive")
            ->type_name("ARCHIVE");
        app.add_option("SOURCE... DEST", m_places, "What to copy, and where to")->required()->expected(2, -1);
        app.parse_complete_callback([this] {
            if (!m_archive.empty())
                m_from = m_into = m_archive;
        });
    }

    void lock(Session& session) override {
        if (!isStandard(destination(), m_into))
            session.lock({{destination(), m_into, !m_copying.exactTarget || m_copying.recursive}});
    }

    void change(Session& session) override {
        if (isStandard(destination(), m_into)) {
            print(session);
            return;
        }
        Copying copying(session, m_copying);
        if (!session.attempt(destination(),
                             [&] { copying.setTarget(destination(), m_into, m_places.size() > 2); }))
            return;
        for (std::size_t i = 0; i + 1 < m_places.size(); ++i)
            session.attempt(m_places[i], [&] { copyOne(session, copying, m_places[i]); });
    }

private:
    const std::string& destination() const { return m_places.back(); }

    void copyOne(Session& session, Copying& copying, const std::string& typed) {
        if (isStandard(typed, m_from)) {
            StandardInput input;
            copying.copyInput(input);
            return;
        }
        copying.copy(session.find(
            typed, m_copying.recursive ? FileMeaning::FolderIfArchive : FileMeaning::File, m_from));
    }

    void print(Session& session) {
        if (session.out().isJson())
            throw UsageError("bytes cannot be printed as JSON");
        std::vector<char> buffer(256 * 1024);
        for (std::size_t i = 0; i + 1 < m_places.size(); ++i)
            session.attempt(m_places[i], [&] {
                if (isStandard(m_places[i], m_from)) {
                    StandardInput input;
                    print(session, input, buffer);
                    return;
                }
                const auto place = session.find(m_places[i], FileMeaning::File, m_from);
                if (place.isFolder())
                    throw CommandError(ErrorCode::InvalidArgument, "is a folder");
                print(session, *place.provider().openReadStream(place.iri()), buffer);
            });
    }

    static void print(Session& session, ByteStream& stream, std::vector<char>& buffer) {
        while (const auto n = stream.read(buffer.data(), static_cast<std::int64_t>(buffer.size())))
            session.out().bytes(buffer.data(), static_cast<std::size_t>(n));
    }

    /// With an archive around them, all names are names in that.
    static bool isStandard(const std::string& typed, const std::string& archive) {
        return typed == standardStream && archive.empty();
    }

    Copying::Options m_copying;
    std::string m_from;
    std::string m_into;
    std::string m_archive;
    std::vector<std::string> m_places;
};

} // namespace

const CommandRow cpRow{
    "cp", "SOURCE... DEST", "Copy files and folders between any two places",
    "Copies between local folders, archives, and archives inside archives. DEST may be a folder or an "
    "archive, which\n"
    "the sources are put into, or the name of the copy. \"-\" is standard input or output.\n\n"
    "A source that is an archive is copied as a file; with -r, what is in it is copied, into a folder that "
    "has the\n"
    "archive's name where DEST exists (-T copies right into DEST). A DEST that is an archive is copied into; "
    "with\n"
    "-T and without -r it is replaced.\n\n"
    "Out of an archive, an entry whose name could lead out of the target folder is refused (\"..\", absolute "
    "names,\n"
    "names through a symbolic link) and the others are copied.",
    &makeCommand<Cp>};

} // namespace apps::kxvfs
