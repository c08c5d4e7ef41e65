#include "ZipProviderTest.h"

#include <storage/zipprovider/src/TimeSource.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

namespace kx::test {

using namespace foundation::storage::provider;
using storage::zipprovider::TimeSource;

namespace {

class StandingClock final : public TimeSource {
public:
    boost::posix_time::ptime now() const override { return m_time; }
    boost::posix_time::ptime lastModified(const fl::filesystem::path&) const override { return m_time; }

private:
    const boost::posix_time::ptime m_time{boost::gregorian::date(2022, 3, 4),
                                          boost::posix_time::time_duration(5, 6, 8)};
};

ArchiveVerdict verdictOf(const std::string& archive) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "written.zip";
    std::ofstream(file, std::ios::binary).write(archive.data(), static_cast<std::streamsize>(archive.size()));
    return verifyArchive(file);
}

} // namespace

ScopedVariable::ScopedVariable(std::string name, const std::string& value) : m_name(std::move(name)) {
    if (const char* before = std::getenv(m_name.c_str())) {
        m_before = before;
    }
    ::setenv(m_name.c_str(), value.c_str(), 1);
}

ScopedVariable::~ScopedVariable() {
    if (m_before) {
        ::setenv(m_name.c_str(), m_before->c_str(), 1);
    } else {
        ::unsetenv(m_name.c_str());
    }
}

ScopedTime::ScopedTime() {
    TimeSource::set(std::make_shared<StandingClock>());
}

ScopedTime::~ScopedTime() {
    TimeSource::set(nullptr);
}

testing::AssertionResult reports(ErrorCode code, const StorageIRI& location,
                                 const std::function<void()>& work) {
    try {
        work();
    } catch (const Exception& error) {
        if (error.getErrorCode() != code || error.getIRI() != location) {
            return testing::AssertionFailure()
                   << "reported " << static_cast<unsigned>(error.getErrorCode()) << " for " << error.getIRI();
        }
        return testing::AssertionSuccess();
    } catch (const std::exception& error) {
        return testing::AssertionFailure() << "threw another exception: " << error.what();
    }
    return testing::AssertionFailure() << "threw nothing";
}

std::string archiveProblems(const std::string& archive, const Contents& expected) {
    if (archive.empty() && expected.empty()) {
        return {};
    }
    ExpectedEntries entries;
    for (const auto& [name, bytes] : expected) {
        entries[name].bytes = bytes;
    }
    return differences(verdictOf(archive), entries);
}

std::vector<SeenEntry> seenEntries(const std::string& archive) {
    return verdictOf(archive).entries;
}

std::vector<std::string> storedNames(const std::string& archive) {
    return verdictOf(archive).names();
}

ZipProviderTest::ZipProviderTest()
    : memory(std::make_shared<InMemoryProvider>()), container(memory, StorageIRI::parse("mem:///plans.zip")),
      zip(container) {
    memory->createFile(container.getLocation());
    m_archives.remember({});
}

void ZipProviderTest::TearDown() {
    // What it still has to save, it saves as it goes.
    zip.unmount();
    for (const auto& name : memory->listAllRecursiveNamesOnly(memory->at(u"/"))) {
        const auto file = memory->at(u"/" + name);
        if (memory->isFile(file)) {
            m_archives.add(file.toUtf8(), readFile(*memory, file));
        }
    }
    m_archives.addFolder(temporary.path());
    EXPECT_EQ(m_archives.problems(), "");
}

void ZipProviderTest::mount(const std::string& archive) {
    zip.unmount();
    replaceContainer(archive);
    zip.remount();
}

void ZipProviderTest::mount(const std::vector<std::pair<std::string, std::string>>& entries) {
    mount(simpleArchive(entries));
}

std::string ZipProviderTest::archive() {
    return readAll(*container.openReadOnlyStream());
}

void ZipProviderTest::replaceContainer(const std::string& bytes) {
    m_archives.remember(bytes);
    const auto stream = container.openStream();
    writeAll(*stream, bytes);
    stream->close();
}

void ZipProviderTest::expectArchive(const Contents& expected) {
    EXPECT_EQ(archiveProblems(archive(), expected), "");
    Contents tree;
    for (const auto& [name, bytes] : expected) {
        for (auto slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
            tree[name.substr(0, slash + 1)];
        }
        tree[name] = bytes;
    }
    EXPECT_EQ(MountedZip(container).tree(), tree);
    EXPECT_EQ(zip.tree(), tree);
}

std::vector<std::string> ZipProviderTest::temporaryFiles() const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(temporary.path())) {
        names.push_back(file.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace kx::test
