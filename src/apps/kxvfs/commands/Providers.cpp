#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Session.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace apps::kxvfs {

namespace {

class Providers : public Command {
public:
    void declare(CLI::App&) override {}

    void run(Session& session) override {
        auto& out = session.out();
        const auto schemes = session.vfs().schemes();
        const auto bundles = session.vfs().bundles();
        if (!session.warnings().empty())
            session.countFailure();
        if (out.isJson()) {
            nlohmann::ordered_json object;
            object["runtime"] = storage::vfs::Vfs::componentRuntime();
            object["schemes"] = schemes;
            object["bundles"] = nlohmann::ordered_json::array();
            for (const auto& bundle : bundles)
                object["bundles"].push_back({{"file", bundle.file.string()},
                                             {"name", bundle.symbolicName},
                                             {"problem", bundle.problem}});
            object["problems"] = session.warnings();
            out.object(object);
            return;
        }
        out.line(fmt::format("runtime: {}", storage::vfs::Vfs::componentRuntime()));
        out.line(fmt::format("schemes: {}", fmt::join(schemes, ", ")));
        for (const auto& bundle : bundles)
            out.line(fmt::format("bundle:  {} ({})",
                                 bundle.problem.empty() ? bundle.symbolicName : "not loaded",
                                 out.name(bundle.file.string())));
    }
};

} // namespace

const CommandRow providersRow{
    "providers", "", "Show the provider bundles and the schemes they serve",
    "Prints which component runtime runs the bundles, the schemes of locations that are\n"
    "served, and the bundles with their files. The exit status is 1 if a bundle, or a folder of\n"
    "bundles, could not be read.",
    &makeCommand<Providers>};

} // namespace apps::kxvfs
