#include <apps/kxvfs/src/Session.h>

#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Progress.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <storage/vfs/StorableName.h>

#include <cstdio>
#include <utility>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using namespace storage::vfs;

namespace {

/// Whether `container` is `iri`'s container or one around that.
bool stands(const StorageIRI& iri, const StorageIRI& container) {
    for (const auto* at = &iri; at->hasContainer();) {
        at = &at->getContainer();
        if (*at == container)
            return true;
    }
    return false;
}

} // namespace

Session::Session(std::string command, GlobalOptions options, bool durableFiles)
    : m_command(std::move(command)), m_options(options), m_out(options.json), m_vfs(makeVfs(durableFiles)),
      m_resolver(*m_vfs), m_changes(std::make_unique<ChangeSession>(
                              *m_vfs,
                              [this](const StorageIRI& file) {
                                  note(fmt::format("waiting for another program that changes {}",
                                                   escaped(fl::i18n::toUtf8(file.getResolvedPath()))));
                              },
                              [this](const SaveProgress& progress) {
                                  if (m_saving)
                                      m_saving->update(progress);
                              })) {}

Session::~Session() = default;

std::unique_ptr<Vfs> Session::makeVfs(bool durableFiles) {
    Vfs::Options options;
    options.durableFiles = durableFiles;
    options.warn = [this](const std::string& message) {
        m_warnings.push_back(message);
        ProgressLine::clear();
        fmt::print(stderr, "kxvfs: {}: {}\n", m_command, escaped(message));
    };
    return std::make_unique<Vfs>(std::move(options));
}

Place Session::find(const std::string& typed, FileMeaning meaning, const std::string& archive) {
    if (!archive.empty() && m_found && m_found->archive == archive)
        return {LocationResolver::inside(m_found->root, typed), m_found->mounted};
    auto location =
        archive.empty() ? m_resolver.resolve(typed, meaning) : m_resolver.resolveInside(archive, typed);
    auto mounted = mount(location.iri, archive.empty() ? typed : archive);
    if (!archive.empty())
        m_found = {archive, location.iri.withPath(u"/"), mounted};
    return {std::move(location), std::move(mounted)};
}

Place Session::findToChange(const std::string& typed, FileMeaning meaning, const std::string& archive) {
    m_found.reset();
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

void Session::requireStorable(const StorageIRI& place, bool folder) {
    if (const auto objection = unstorable(place, folder))
        throw CommandError(ErrorCode::InvalidArgument, *objection);
}

std::shared_ptr<IProvider> Session::changing(const Place& place) {
    requireStorable(place.iri(), false);
    return m_changes->changing(place.iri());
}

bool Session::flush() {
    return save(false);
}

void Session::commit() {
    save(true);
    printResults();
}

void Session::done(Change change) {
    if (m_out.isJson())
        m_results.push_back({std::move(change), {}});
}

void Session::drop(const StorageIRI& unsaved) {
    std::erase_if(m_results, [&](const Result& result) {
        return result.change && (result.change->mounted.container == unsaved ||
                                 stands(result.change->mounted.container, unsaved));
    });
    for (auto& [change, failure] : m_results)
        if (change && change->action == movedAction && stands(change->source, unsaved))
            change->action = "copied";
}

void Session::printResults() {
    for (auto& result : std::exchange(m_results, {}))
        m_out.object(result.change ? toJson(*this, *result.change) : result.failure);
}

bool Session::save(bool last) {
    m_found.reset();
    m_saving.emplace(progressWanted() && m_changes->hasChanges());
    const auto failures = last ? m_changes->commit() : m_changes->flush();
    m_saving.reset();
    for (const auto& failure : failures) {
        fail(failure.container.hasContainer() ? failure.container.toUtf8()
                                              : fl::i18n::toUtf8(failure.container.getResolvedPath()),
             failure.error);
        drop(failure.container);
        m_vfs->discard(failure.container);
    }
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
    const auto cause = failure.detail.empty() || m_options.verbosity == 0
                           ? failure.cause
                           : fmt::format("{} ({})", failure.cause, failure.detail);
    fmt::print(stderr, "kxvfs: {}: {}{}: {}\n", m_command, escaped(context), escaped(shown), escaped(cause));
    if (!m_out.isJson())
        return;
    nlohmann::ordered_json error;
    error["code"] = failure.code ? nlohmann::ordered_json(static_cast<unsigned>(*failure.code)) : nullptr;
    error["name"] = failure.code ? nlohmann::ordered_json(std::string(toText(*failure.code))) : nullptr;
    error["message"] = cause;
    if (!failure.place.empty())
        error["place"] = failure.place;
    nlohmann::ordered_json object{{"path", std::string(shown)}, {"error", error}};
    if (m_results.empty())
        m_out.object(object);
    else
        m_results.push_back({{}, std::move(object)});
}

void Session::note(std::string_view text) {
    if (m_options.quiet)
        return;
    ProgressLine::clear();
    fmt::print(stderr, "kxvfs: {}: {}\n", m_command, text);
}

} // namespace apps::kxvfs
