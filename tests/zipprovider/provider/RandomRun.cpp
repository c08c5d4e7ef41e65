#include "RandomRun.h"

#include "InPlaceProvider.h"

#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/FolderAttributes.h>
#include <storage/zipprovider/src/TimeSource.h>
#include <support/FaultInjectingProvider.h>
#include <support/ForwardingProvider.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <utility>

namespace kx::test {

using namespace foundation::storage::provider;

/// Goes on when it is told to, for files too.
class SteppingClock final : public storage::zipprovider::TimeSource {
public:
    boost::posix_time::ptime now() const override { return boost::posix_time::from_time_t(seconds); }
    boost::posix_time::ptime lastModified(const fl::filesystem::path&) const override { return now(); }

    // Some hours before daylight saving time begins in the zones that the runs are in.
    std::int64_t seconds = 1'647'000'000;
};

namespace {

using Kind = Step::Kind;

/// Counts how often a container is opened for writing, that is how often its archive is rebuilt.
class CountedOpenings final : public ForwardingProvider {
public:
    CountedOpenings(std::shared_ptr<IProvider> target, std::shared_ptr<std::uint64_t> count)
        : ForwardingProvider(std::move(target)), m_count(std::move(count)) {}

protected:
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) override {
        ++*m_count;
        return ForwardingProvider::doOpenStream(location, options);
    }

private:
    const std::shared_ptr<std::uint64_t> m_count;
};

constexpr auto savedAgain = "/saved again";

void require(bool condition, const std::string& complaint) {
    if (!condition) {
        throw Mismatch(complaint);
    }
}

std::array<int, 6> stampOf(std::int64_t seconds) {
    const std::time_t instant = seconds;
    std::tm parts{};
    ::gmtime_r(&instant, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

/// An archive of no bytes at all has no entries.
ArchiveVerdict verdictOf(const std::string& archive) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("written.zip"), std::ios::binary) << archive;
    return archive.empty() ? ArchiveVerdict() : verifyArchive(folder.file("written.zip"));
}

MoveOption moveOptionOf(const Step& step) {
    constexpr std::array options{MoveOption::FailIfExists, MoveOption::ReplaceExisting, MoveOption::AllowCopy,
                                 MoveOption::ReplaceExistingAllowCopy};
    return options[step.option % options.size()];
}

} // namespace

std::ostream& operator<<(std::ostream& out, RandomPlace place) {
    switch (place) {
    case RandomPlace::Memory:
        return out << "Memory";
    case RandomPlace::InPlaceFile:
        return out << "InPlaceFile";
    case RandomPlace::InsideAnotherArchive:
        break;
    }
    return out << "InsideAnotherArchive";
}

RandomRun::RandomRun(RandomPlace place, const std::string& zone)
    : m_zone(zone), m_clock(std::make_shared<SteppingClock>()), m_place(place) {
    storage::zipprovider::TimeSource::set(m_clock);
    m_memory->createFile(m_memory->at(u"/plans.zip"));
    mount();
}

RandomRun::~RandomRun() {
    m_streams.clear();
    m_zip.reset();
    m_outer.reset();
    storage::zipprovider::TimeSource::set(nullptr);
}

void RandomRun::mount() {
    std::shared_ptr<IProvider> below = m_memory;
    if (m_place == RandomPlace::InPlaceFile) {
        below = std::make_shared<InPlaceProvider>(below);
    }
    const StorageItem container(std::make_shared<FaultInjectingProvider>(
                                    std::make_shared<CountedOpenings>(below, m_rebuilds), m_plan),
                                m_memory->at(u"/plans.zip"));
    if (m_place == RandomPlace::InsideAnotherArchive) {
        m_outer = std::make_unique<MountedZip>(container);
        if (!m_outer->isFile("/inner.zip")) {
            m_outer->createFile("/inner.zip");
        }
        m_zip = std::make_unique<MountedZip>(m_outer->item("/inner.zip"));
    } else {
        m_zip = std::make_unique<MountedZip>(container);
    }
    // Read while nothing fails: a container that cannot be read is refused for good.
    m_zip->list();
}

void RandomRun::remount() {
    while (!m_streams.empty()) {
        m_model.close(m_model.streams().begin());
        m_streams.front()->close();
        m_streams.pop_front();
    }
    m_zip.reset();
    m_outer.reset();
    require(m_memory->openStreamCount() == 0, "streams of the container are open");
    require(std::filesystem::is_empty(m_temporary.path()), "files are left in the temporary folder");
    mount();
}

void RandomRun::apply(const Step& step) {
    m_clock->seconds += 3602;
    m_model.setTime(m_clock->seconds);
    switch (step.kind) {
    case Kind::ReadStream:
    case Kind::WriteStream:
    case Kind::CloseStream:
    case Kind::AbandonStream:
        applyToStreams(step);
        break;
    case Kind::Remount:
        remount();
        break;
    default:
        applyToTree(step);
    }
    if (m_spoil) {
        m_spoil(step, m_model);
    }
    compareTrees();
    if (++m_steps % 20 == 0 || step.kind == Kind::Remount) {
        for (const auto& [path, node] : m_model.nodes()) {
            compareBytes(path);
        }
    } else {
        compareBytes(step.path);
        compareBytes(step.to);
    }
}

void RandomRun::finish() {
    remount();
    compareTrees();
    ExpectedEntries expected;
    for (const auto& [path, node] : m_model.nodes()) {
        compareBytes(path);
        if (path != "/") {
            expected[path.substr(1) + (node->isFolder ? "/" : "")] = {node->saved, stampOf(node->stamp)};
        }
    }
    auto verdict = verdictOf(readFile(*m_memory, m_memory->at(u"/plans.zip")));
    if (m_place == RandomPlace::InsideAnotherArchive) {
        require(verdict.problems().empty(), verdict.problems());
        require(verdict.names() == std::vector<std::string>{"inner.zip"},
                "the outer archive has other entries");
        const auto inner = verdict.inside.find("inner.zip");
        verdict = inner == verdict.inside.end() ? ArchiveVerdict() : ArchiveVerdict(inner->second);
    }
    const auto problems = differences(verdict, expected);
    require(problems.empty(), problems);
}

void RandomRun::applyToTree(const Step& step) {
    const auto& path = step.path;
    const auto& to = step.to;
    const bool replaces = replacesExisting(moveOptionOf(step));
    auto& zip = *m_zip;
    const bool leadsElsewhere =
        step.kind == Kind::MoveFile || step.kind == Kind::MoveFolder || step.kind == Kind::CopyFile;
    if (m_model.wouldBeNamedLikeAFolderAbove(path, leadsElsewhere ? to : path)) {
        return;
    }
    switch (step.kind) {
    case Kind::CreateFile:
        if (perform(
                step, path, m_model.checkNew(path), [&] { zip.createFile(path); },
                [&] { return zip.isFile(path); })) {
            m_model.createFile(path);
        }
        break;
    case Kind::CreateFolder:
        if (perform(
                step, path, m_model.checkNew(path), [&] { zip.createFolder(path); },
                [&] { return zip.isFolder(path); })) {
            m_model.createFolder(path);
        }
        break;
    case Kind::RemoveFile:
        if (perform(
                step, path, m_model.checkRemoveFile(path), [&] { zip.removeFile(path); },
                [&] { return !zip.isFile(path); })) {
            m_model.remove(path);
        }
        break;
    case Kind::RemoveFolder:
        if (perform(
                step, path, m_model.checkRemoveFolder(path), [&] { zip.removeFolder(path); },
                [&] { return !zip.isFolder(path); })) {
            m_model.remove(path);
        }
        break;
    case Kind::MoveFile:
        if (perform(
                step, to, m_model.checkMove(path, to, false, replaces),
                [&] { zip.moveFile(path, to, moveOptionOf(step)); },
                [&] { return path == to || !zip.isFile(path); })) {
            m_model.move(path, to);
        }
        break;
    case Kind::MoveFolder:
        if (perform(
                step, to, m_model.checkMove(path, to, true, replaces),
                [&] { zip.moveFolder(path, to, moveOptionOf(step)); },
                [&] { return path == to || !zip.isFolder(path); })) {
            m_model.move(path, to);
        }
        break;
    case Kind::CopyFile:
        copyFile(step);
        break;
    case Kind::WriteFile:
        writeWhole(step, false);
        break;
    case Kind::AppendToFile:
        writeWhole(step, true);
        break;
    case Kind::OpenForReading:
        if (perform(
                step, path, m_model.checkRemoveFile(path), [&] { m_streams.push_back(zip.reader(path)); },
                [] { return false; })) {
            m_model.openForReading(path);
        }
        break;
    default:
        openForWriting(step, optionsOf(step));
    }
}

void RandomRun::openForWriting(const Step& step, const ArchiveModel::Options& options) {
    if (perform(
            step, step.path, m_model.checkOpenForWriting(step.path, options),
            [&] { m_streams.push_back(m_zip->writer(step.path, options)); }, [] { return false; })) {
        m_model.openForWriting(step.path, options);
    }
}

void RandomRun::writeWhole(const Step& step, bool append) {
    const auto streams = m_streams.size();
    openForWriting(step, append ? ByteStreamOpenOptions::append() : ByteStreamOpenOptions::overwrite());
    if (m_streams.size() > streams) {
        writeAll(*m_streams.back(), step.bytes);
        ArchiveModel::write(m_model.streams().back(), step.bytes);
        endStream(step, streams, true);
    }
}

void RandomRun::copyFile(const Step& step) {
    const auto& path = step.path;
    const auto& to = step.to;
    auto refusal = m_model.checkRemoveFile(path);
    const auto& blamed = refusal ? path : to;
    if (!refusal && (m_model.isFolder(to) || (m_model.isFile(to) && !replacesExisting(moveOptionOf(step))))) {
        refusal = ErrorCode::AlreadyExists;
    } else if (!refusal) {
        refusal = m_model.checkOpenForWriting(to, ByteStreamOpenOptions::overwrite());
    }
    Step unfailing = step;
    unfailing.failingCall = 0;
    if (perform(unfailing, blamed, refusal,
                [&] { m_zip->provider().copyFile(m_zip->at(path), m_zip->at(to), moveOptionOf(step)); },
                {}) &&
        path != to) {
        ArchiveModel::WorkingFile keep;
        const auto bytes = ArchiveModel::bytesOf(*m_model.nodes().at(path), keep);
        m_model.openForWriting(to, ByteStreamOpenOptions::overwrite());
        ArchiveModel::write(m_model.streams().back(), bytes);
        m_model.close(std::prev(m_model.streams().end()));
    }
}

void RandomRun::applyToStreams(const Step& step) {
    if (m_streams.empty()) {
        return;
    }
    const auto index = step.stream % m_streams.size();
    auto& expected = *std::next(m_model.streams().begin(), static_cast<std::ptrdiff_t>(index));
    auto& stream = **std::next(m_streams.begin(), static_cast<std::ptrdiff_t>(index));
    switch (step.kind) {
    case Kind::ReadStream:
        readStream(step, expected, stream);
        break;
    case Kind::WriteStream:
        writeStream(step, expected, stream);
        break;
    default:
        endStream(step, index, step.kind == Kind::CloseStream);
    }
}

void RandomRun::readStream(const Step& step, ArchiveModel::Stream& expected, ByteStream& stream) {
    if (!expected.canRead || expected.appends) {
        return;
    }
    const auto& bytes = *expected.working;
    const auto from = step.position % (bytes.size() + 1);
    require(stream.seek(static_cast<std::int64_t>(from), SeekOrigin::Begin) ==
                static_cast<std::int64_t>(from),
            "a stream went to another position");
    require(readAll(stream) == bytes.substr(from), "a stream read other bytes");
    expected.position = bytes.size();
}

void RandomRun::writeStream(const Step& step, ArchiveModel::Stream& expected, ByteStream& stream) {
    if (!expected.canWrite) {
        return;
    }
    if (step.option % 2 == 0 && !expected.appends) {
        // Also behind the end, which leaves zeros in between.
        expected.position = step.position % (expected.working->size() + 50);
        stream.seek(static_cast<std::int64_t>(expected.position), SeekOrigin::Begin);
    }
    writeAll(stream, step.bytes);
    ArchiveModel::write(expected, step.bytes);
}

void RandomRun::endStream(const Step& step, std::size_t index, bool close) {
    const auto stream = std::next(m_streams.begin(), static_cast<std::ptrdiff_t>(index));
    const auto expected = std::next(m_model.streams().begin(), static_cast<std::ptrdiff_t>(index));
    close ? m_model.close(expected) : m_model.abandon(expected);
    perform(
        step, "/", {},
        [&] {
            if (close) {
                (*stream)->close();
            }
            stream->reset();
        },
        [] { return true; });
    m_streams.erase(stream);
}

bool RandomRun::perform(const Step& step, const std::string& path, const ArchiveModel::Refusal& refusal,
                        const std::function<void()>& work, const std::function<bool()>& wasDone) {
    m_plan->failCall(step.failingCall, {},
                     step.failsOn ? FaultPlan::Afterwards::FailsOn : FaultPlan::Afterwards::Works);
    std::string thrown;
    ArchiveModel::Refusal code;
    std::string location;
    try {
        work();
    } catch (const Exception& error) {
        thrown = error.what();
        code = error.getErrorCode();
        location = error.getIRI().toUtf8();
    } catch (const std::exception& error) {
        thrown = error.what();
    }
    const bool failed = m_plan->failures() > 0;
    m_plan->countOnly();
    if (!failed) {
        if (!refusal) {
            require(thrown.empty(), "it was refused: " + thrown);
            return true;
        }
        require(code == refusal && location == m_zip->at(path).toUtf8(),
                thrown.empty() ? "it was not refused" : "it was refused otherwise: " + thrown);
        return false;
    }
    require(!refusal || !thrown.empty(), "it was not refused");
    const bool done = !refusal && (thrown.empty() || wasDone());
    if (!m_model.isBeingWritten()) {
        saveAgain();
    }
    return done;
}

void RandomRun::saveAgain() {
    try {
        m_zip->createFolder(savedAgain);
        m_model.createFolder(savedAgain);
        m_zip->removeFolder(savedAgain);
        m_model.remove(savedAgain);
    } catch (const std::exception& error) {
        throw Mismatch(std::string("a failed save could not be made up for: ") + error.what());
    }
}

void RandomRun::compareTrees() {
    m_model.takeTimes(std::exchange(*m_rebuilds, 0));
    compareListings();
    compareAttributes();
}

void RandomRun::compareListings() {
    std::map<std::string, std::set<std::string>> folders;
    for (const auto& [path, node] : m_model.nodes()) {
        if (node->isFolder) {
            folders[path];
        }
        if (path != "/") {
            const auto slash = path.rfind('/');
            folders[slash == 0 ? "/" : path.substr(0, slash)].insert(path.substr(slash + 1) +
                                                                     (node->isFolder ? "/" : ""));
        }
    }
    for (const auto& [path, names] : folders) {
        // In the order of the names, to which the slash of a folder does not belong.
        std::vector<std::string> expected(names.begin(), names.end());
        const auto withoutSlash = [](const std::string& name) { return name.substr(0, name.find('/')); };
        std::sort(expected.begin(), expected.end(),
                  [&](const auto& a, const auto& b) { return withoutSlash(a) < withoutSlash(b); });
        require(m_zip->list(path) == expected, "the listing of " + path + " differs");
    }
}

void RandomRun::compareAttributes() {
    for (const auto& [path, node] : m_model.nodes()) {
        require(m_zip->isFolder(path) == node->isFolder && m_zip->isFile(path) != node->isFolder,
                "the kind of " + path + " differs");
        if (!node->isFolder) {
            const auto& bytes = node->changed ? *node->changed : node->saved;
            require(m_zip->size(path) == bytes.size(), "the size of " + path + " differs");
        }
        // The root has the time of its container. A folder's shown time is that of the first entry at or
        // below it in the archive's order, so what is compared in the end, as it is stored, is compared here
        // where nothing stands below and all is saved.
        if (path == "/" ||
            (node->isFolder && (m_model.isBeingWritten() || m_model.checkRemoveFolder(path)))) {
            continue;
        }
        // A file that is being written has the time of its working file.
        const auto time = node->changed ? m_clock->seconds : node->stamp;
        const auto told = timeOf(path, node->isFolder);
        require(told == time, "the time of " + path + " is " + std::to_string(told) + " instead of " +
                                  std::to_string(time));
    }
}

std::int64_t RandomRun::timeOf(const std::string& path, bool folder) {
    auto& provider = m_zip->provider();
    return boost::posix_time::to_time_t(folder
                                            ? provider.getFolderAttributes(m_zip->at(path)).getLastModified()
                                            : provider.getFileAttributes(m_zip->at(path)).getLastModified());
}

void RandomRun::compareBytes(const std::string& path) {
    const auto node = m_model.nodes().find(path);
    if (node == m_model.nodes().end() || node->second->isFolder) {
        return;
    }
    ArchiveModel::WorkingFile keep;
    require(readAs(path) == ArchiveModel::bytesOf(*node->second, keep), "the bytes of " + path + " differ");
}

std::string RandomRun::readAs(const std::string& path) {
    try {
        return m_zip->read(path);
    } catch (const std::exception& error) {
        throw Mismatch("cannot read " + path + ": " + error.what());
    }
}

} // namespace kx::test
