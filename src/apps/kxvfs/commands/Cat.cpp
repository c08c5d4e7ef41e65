#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Session.h>

#include <CLI/CLI.hpp>

#include <vector>

namespace apps::kxvfs {

namespace {

class Cat : public Command {
public:
    void declare(CLI::App& app) override { m_locations.declare(app, true); }

    void run(Session& session) override {
        if (session.out().isJson())
            throw UsageError("bytes cannot be printed as JSON");
        std::vector<char> buffer(256 * 1024);
        for (const auto& typed : m_locations.typed)
            session.attempt(typed, [&] {
                const auto place = session.find(typed, storage::vfs::FileMeaning::File, m_locations.archive);
                if (place.isFolder())
                    throw CommandError(foundation::storage::provider::ErrorCode::NotFound, "is a folder");
                const auto stream = place.provider().openReadStream(place.iri());
                while (const auto n = stream->read(buffer.data(), static_cast<std::int64_t>(buffer.size())))
                    session.out().bytes(buffer.data(), static_cast<std::size_t>(n));
                stream->close();
            });
    }

private:
    Locations m_locations;
};

} // namespace

const CommandRow catRow{"cat", "LOCATION...", "Print files to standard output",
                        "Prints the bytes of each file, one after another.", &makeCommand<Cat>};

} // namespace apps::kxvfs
