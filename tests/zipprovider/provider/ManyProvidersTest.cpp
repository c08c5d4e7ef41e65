#include "ZipProviderTest.h"

#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <atomic>
#include <exception>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace kx::test {

namespace {

using storage::fileprovider::FileLock;
using storage::fileprovider::LocalFileProvider;

constexpr int writers = 4;
constexpr int readers = 2;
constexpr int filesOfAWriter = 12;

std::string bytesOf(const std::string& name) {
    std::string bytes;
    while (bytes.size() < 5'000) {
        bytes += name + '\n';
    }
    return bytes;
}

std::string nameOf(int writer, int file) {
    return "w" + std::to_string(writer) + "-" + std::to_string(file);
}

/// Each thread has providers of its own, as processes have. Changes are made under the lock that programs
/// take.
class ManyProviders : public ZipProviderTest {
protected:
    ManyProviders() {
        std::ofstream(m_folder.file("plans.zip"), std::ios::binary)
            << simpleArchive({{"first", bytesOf("first")}});
    }

    StorageItem archiveFile() const { return {m_files, m_folder.iri("plans.zip")}; }

    void write(int writer) {
        for (int file = 0; file < filesOfAWriter; ++file) {
            const auto lock = FileLock::acquire(m_folder.iri("plans.zip"));
            MountedZip mounted(archiveFile());
            mounted.write("/" + nameOf(writer, file), bytesOf(nameOf(writer, file)));
        }
    }

    /// What is read without the lock is right or refused, whatever others do to the archive meanwhile.
    void read() {
        while (!m_done) {
            MountedZip mounted(archiveFile());
            for (const auto& name : mounted.list()) {
                try {
                    if (mounted.read("/" + name) != bytesOf(name)) {
                        ++m_wrong;
                    }
                    ++m_read;
                } catch (const std::exception&) {
                    ++m_refused;
                }
            }
        }
    }

    const TemporaryFolder m_folder;
    const std::shared_ptr<LocalFileProvider> m_files = LocalFileProvider::create();
    std::atomic<bool> m_done = false;
    std::atomic<int> m_wrong = 0;
    std::atomic<int> m_read = 0;
    std::atomic<int> m_refused = 0;
};

} // namespace

TEST_F(ManyProviders, OverOneContainerLoseNothingWhenTheyTakeTurnsAndReadNothingWrong) {
    std::vector<std::thread> reading;
    for (int reader = 0; reader < readers; ++reader) {
        reading.emplace_back([this] { read(); });
    }
    std::vector<std::thread> writing;
    for (int writer = 0; writer < writers; ++writer) {
        writing.emplace_back([this, writer] { write(writer); });
    }
    for (auto& thread : writing) {
        thread.join();
    }
    m_done = true;
    for (auto& thread : reading) {
        thread.join();
    }
    EXPECT_EQ(m_wrong, 0);
    EXPECT_GT(m_read, 0);
    Contents expected{{"first", bytesOf("first")}};
    for (int writer = 0; writer < writers; ++writer) {
        for (int file = 0; file < filesOfAWriter; ++file) {
            expected[nameOf(writer, file)] = bytesOf(nameOf(writer, file));
        }
    }
    EXPECT_EQ(MountedZip(archiveFile()).tree(), expected);
}

} // namespace kx::test
