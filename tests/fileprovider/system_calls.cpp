#include "LocalFilesTest.h"
#include "SimulatedCrash.h"

#include <cerrno>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

/// Every other call is interrupted by a signal, and the rest do little at a time.
class Interrupting final : public storage::fileprovider::SystemCalls {
public:
    int open(const char* path, int flags, mode_t mode) override {
        return interrupted() ? -1 : SystemCalls::open(path, flags, mode);
    }
    ssize_t read(int file, char* buffer, std::size_t count, off_t position) override {
        return interrupted() ? -1
                             : SystemCalls::read(file, buffer, std::min<std::size_t>(count, 1000), position);
    }
    ssize_t write(int file, const char* buffer, std::size_t count, off_t position) override {
        return interrupted() ? -1
                             : SystemCalls::write(file, buffer, std::min<std::size_t>(count, 1000), position);
    }
    ssize_t copyRange(int from, off_t fromPosition, int to, off_t toPosition, std::size_t count) override {
        return interrupted() ? -1
                             : SystemCalls::copyRange(from, fromPosition, to, toPosition,
                                                      std::min<std::size_t>(count, 1000));
    }
    int allocate(int file, off_t position, off_t length) override {
        return interrupted() ? -1 : SystemCalls::allocate(file, position, length);
    }
    int truncate(int file, off_t size) override {
        return interrupted() ? -1 : SystemCalls::truncate(file, size);
    }
    int sync(int file) override { return interrupted() ? -1 : SystemCalls::sync(file); }

private:
    bool interrupted() {
        m_interrupts = !m_interrupts;
        errno = EINTR;
        return m_interrupts;
    }

    bool m_interrupts = false;
};

/// Counts what is synced.
class CountingSyncs final : public storage::fileprovider::SystemCalls {
public:
    int sync(int file) override {
        ++m_count;
        return SystemCalls::sync(file);
    }
    int count() const { return m_count; }

private:
    int m_count = 0;
};

} // namespace

class LocalFileSystemCalls : public LocalFilesTest {
protected:
    LocalFileSystemCalls() {
        spit(file("a"), m_old);
        fs::create_hard_link(file("a"), file("link"));
        spit(file("b"), m_old);
    }

    const std::string m_old = randomBytes(7000, 1);
    const std::string m_new = randomBytes(15'000, 2);
};

TEST_F(LocalFileSystemCalls, InterruptionsAndShortTransfersGoUnnoticed) {
    const auto provider = LocalFileProvider::create(options(std::make_shared<Interrupting>()));
    for (const auto* name : {"a", "b", "new"}) {
        writeFile(*provider, iri(name), m_new);
        EXPECT_EQ(slurp(file(name)), m_new);
        writeFile(*provider, iri(name), "more", ByteStreamOpenOptions::append());
        EXPECT_EQ(readFile(*provider, iri(name)), m_new + "more");
    }
    expectNothingLeft();
}

TEST_F(LocalFileSystemCalls, FileSystemsThatLackACallAreServedWithoutIt) {
    const auto calls = std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder()});
    calls->withoutAllocation();
    calls->withoutCopyRange();
    calls->withoutAttributes();
    const auto provider = LocalFileProvider::create(options(calls));
    for (const auto* name : {"a", "b"}) {
        writeFile(*provider, iri(name), m_new);
        writeFile(*provider, iri(name), "more", ByteStreamOpenOptions::append());
        EXPECT_EQ(slurp(file(name)), m_new + "more");
    }
    expectNothingLeft();
}

TEST_F(LocalFileSystemCalls, SyncingCanBeSwitchedOff) {
    const auto calls = std::make_shared<CountingSyncs>();
    auto how = options(calls);
    how.sync = false;
    writeFile(*LocalFileProvider::create(how), iri("a"), m_new);
    writeFile(*LocalFileProvider::create(how), iri("b"), m_new);
    EXPECT_EQ(calls->count(), 0);
    how.sync = true;
    writeFile(*LocalFileProvider::create(how), iri("b"), m_new);
    EXPECT_EQ(calls->count(), 2) << "the staging file and the folder";
}

} // namespace kx::test
