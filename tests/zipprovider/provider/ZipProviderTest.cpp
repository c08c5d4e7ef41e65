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

bool isAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

ArchiveVerdict verdictOf(const std::string& archive) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "written.zip";
    std::ofstream(file, std::ios::binary).write(archive.data(), static_cast<std::streamsize>(archive.size()));
    auto verdict = verifyArchive(file);
    // Python takes names without the UTF-8 flag for code page 437; bsdtar gives their bytes.
    if (verdict.bsdtar.names.size() == verdict.entries.size()) {
        for (std::size_t i = 0; i < verdict.entries.size(); ++i) {
            if (!isAscii(verdict.entries[i].name)) {
                verdict.entries[i].name = verdict.bsdtar.names[i];
            }
        }
    }
    return verdict;
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
    const auto verdict = verdictOf(archive);
    auto problems = verdict.problems();
    for (const auto& entry : verdict.entries) {
        const auto place = expected.find(entry.name);
        if (place == expected.end()) {
            problems += entry.name + " is not expected\n";
        } else if (entry.size != place->second.size() || entry.crc32 != crc32Of(place->second)) {
            problems += entry.name + " has other bytes than expected\n";
        }
    }
    auto names = verdict.names();
    std::sort(names.begin(), names.end());
    for (const auto& [name, bytes] : expected) {
        const auto count = std::count(names.begin(), names.end(), name);
        if (count != 1) {
            problems += name + " is there " + std::to_string(count) + " times\n";
        }
    }
    return problems;
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
