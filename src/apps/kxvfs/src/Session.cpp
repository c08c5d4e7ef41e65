#include <apps/kxvfs/src/Session.h>

#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Progress.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>

#include <cstdio>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using namespace storage::vfs;

namespace {

std::unique_ptr<Vfs> makeVfs(const std::string& command, bool durableFiles) {
    Vfs::Options options;
    options.durableFiles = durableFiles;
    options.warn = [command](const std::string& message) {
        ProgressLine::clear();
        fmt::print(stderr, "kxvfs: {}: {}\n", command, escaped(message));
    };
    return std::make_unique<Vfs>(std::move(options));
}

} // namespace

Session::Session(std::string command, GlobalOptions options, bool durableFiles)
    : m_command(std::move(command)), m_options(options), m_out(options.json),
      m_vfs(makeVfs(m_command, durableFiles)), m_resolver(*m_vfs),
      m_changes(std::make_unique<ChangeSession>(*m_vfs, [this](const StorageIRI& file) {
          note(fmt::format("waiting for another program that changes {}",
                           escaped(fl::i18n::toUtf8(file.getResolvedPath()))));
      })) {}

Session::~Session() = default;

Place Session::find(const std::string& typed, FileMeaning meaning, const std::string& archive) {
    auto location =
        archive.empty() ? m_resolver.resolve(typed, meaning) : m_resolver.resolveInside(archive, typed);
    auto mounted = mount(location.iri, archive.empty() ? typed : archive);
    return {std::move(location), std::move(mounted)};
}

Place Session::findToChange(const std::string& typed, FileMeaning meaning, const std::string& archive) {
    auto location =
        archive.empty() ? m_resolver.resolve(typed, meaning) : m_resolver.resolveInside(archive, typed);
    auto mounted = m_vfs->mount(location.iri);
    return {std::move(location), std::move(mounted)};
}

void Session::lock(const std::vector<ChangedPlace>& places) {
    std::vector<StorageIRI> files;
    for (const auto& place : places) {
        auto file = place.archive.empty() ? m_resolver.localContainer(place.typed, false)
                                          : m_resolver.localContainer(place.archive, true);
        if (!file && place.target) {
            file = m_resolver.localContainer(place.typed, true);
            if (file && !m_vfs->isContainer(*file))
                file.reset();
        }
        if (file)
            files.push_back(std::move(*file));
    }
    if (!files.empty())
        m_changes->lock(files);
}

MountedContainer Session::mount(const StorageIRI& location, const std::string& shown) {
    auto mounted = m_vfs->mount(location, Tolerance::Damaged);
    if (mounted.summary.condition == ArchiveCondition::Damaged && m_damaged.insert(mounted.container).second)
        fail(shown, ErrorCode::ContainerUnreadable,
             fmt::format("damaged ZIP archive: {}; reading as far as it goes", mounted.summary.cause));
    return mounted;
}

std::shared_ptr<IProvider> Session::changing(const Place& place) {
    return m_changes->changing(place.iri());
}

bool Session::flush() {
    return save(false);
}

void Session::commit() {
    save(true);
}

bool Session::save(bool last) {
    const bool shown = m_changes->hasChanges() && !m_options.quiet;
    if (shown)
        ProgressLine::show("saving …");
    const auto failures = last ? m_changes->commit() : m_changes->flush();
    if (shown)
        ProgressLine::clear();
    for (const auto& failure : failures)
        fail(failure.container.hasContainer() ? failure.container.toUtf8()
                                              : fl::i18n::toUtf8(failure.container.getResolvedPath()),
             failure.error);
    return failures.empty();
}

void Session::fail(std::string_view shown) {
    report(shown, describe(std::current_exception()));
}

void Session::fail(std::string_view shown, const std::exception_ptr& error) {
    report(shown, describe(error));
}

void Session::fail(std::string_view shown, ErrorCode code, const std::string& cause) {
    report(shown, {cause, code, {}});
}

void Session::report(std::string_view shown, const Failure& failure) {
    ++m_failures;
    // What was listed before stands above the message also when both go to one place.
    std::fflush(stdout);
    ProgressLine::clear();
    const auto context = m_context.empty() ? m_context : m_context + ": ";
    fmt::print(stderr, "kxvfs: {}: {}{}: {}\n", m_command, escaped(context), escaped(shown),
               escaped(failure.cause));
    if (!m_out.isJson())
        return;
    nlohmann::ordered_json error;
    error["code"] = failure.code ? nlohmann::ordered_json(static_cast<unsigned>(*failure.code)) : nullptr;
    error["name"] = failure.code ? nlohmann::ordered_json(std::string(toText(*failure.code))) : nullptr;
    error["message"] = failure.cause;
    if (!failure.place.empty())
        error["place"] = failure.place;
    m_out.object({{"path", std::string(shown)}, {"error", error}});
}

void Session::note(std::string_view text) {
    if (m_options.quiet)
        return;
    ProgressLine::clear();
    fmt::print(stderr, "kxvfs: {}: {}\n", m_command, text);
}

} // namespace apps::kxvfs
