#include "ProviderConformance.h"

#include <fl/i18n/utf8.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>
#include <support/archives/ExpectedEntries.h>
#include <support/contents.h>
#include <zipprovider/ScopedTimeZone.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <filesystem>
#include <fstream>
#include <utility>

namespace kx::test {

namespace {

using Container = provider::StorageItem;

// In another zone the stamp of an entry that is carried over moves by the offset.
const ScopedTimeZone utc("UTC0");

std::shared_ptr<provider::IProvider> openZip(const Container& container) {
    return storage::zipprovider::ZipProviderFactory().createProvider(container);
}

std::array<int, 6> stampOf(const boost::posix_time::ptime& time) {
    const auto date = time.date();
    const auto clock = time.time_of_day();
    return {date.year(),        date.month(),         date.day(),
            int(clock.hours()), int(clock.minutes()), int(clock.seconds())};
}

/// All that a provider shows of an archive.
ExpectedEntries shownBy(provider::IProvider& zip, const provider::StorageIRI& root) {
    ExpectedEntries entries;
    for (const auto& entry : listEntries(*zip.listAllRecursive(root))) {
        const auto location = root.child(entry.getName());
        const auto name = fl::i18n::toUtf8(entry.getName());
        if (entry.isFolder()) {
            entries[name + "/"] = {{}, stampOf(zip.getFolderAttributes(location).getLastModified())};
        } else {
            const auto attributes = zip.getFileAttributes(location);
            entries[name] = {readFile(zip, location), stampOf(attributes.getLastModified())};
            EXPECT_EQ(attributes.getSize(), entries[name].bytes.size()) << name;
        }
    }
    return entries;
}

/// An archive, with a folder of it as the place of the tests.
class ZipUnderTest : public ProviderUnderTest {
public:
    provider::IProvider& get() override { return *m_zip; }
    provider::StorageIRI root() override {
        return provider::StorageIRI::inContainer("zip", container().getLocation(), m_root);
    }
    ProviderTraits traits() const override {
        ProviderTraits traits;
        traits.keepsOldContentsOnDiscard = true;
        traits.refusesToListFiles = false;
        return traits;
    }
    void reopen() override {
        m_zip.reset();
        m_zip = openZip(container());
    }
    /// Independent readers must see in the archive what a provider that knows nothing of the one before
    /// shows.
    std::string problemsOfTheStorage() override {
        reopen();
        const auto root = provider::StorageIRI::inContainer("zip", container().getLocation(), u"/");
        return differences(verdict(), shownBy(*m_zip, root));
    }

protected:
    explicit ZipUnderTest(fl::i18n::ustring root) : m_root(std::move(root)) {}

    virtual const Container& container() const = 0;
    virtual ArchiveVerdict verdict() const = 0;
    static ArchiveVerdict verdictOf(const std::string& archive) {
        if (archive.empty()) {
            // Nothing was ever written; to other programs that is no archive.
            return {};
        }
        const TemporaryFolder folder;
        std::ofstream(folder.file("archive.zip"), std::ios::binary) << archive;
        return verifyArchive(folder.file("archive.zip"));
    }
    /// For constructors: opens the archive and makes the tests' folder in it.
    void start() {
        m_zip = openZip(container());
        m_zip->createFolderRecursive(root());
    }

private:
    const fl::i18n::ustring m_root;
    std::shared_ptr<provider::IProvider> m_zip;
};

class ZipInMemoryUnderTest final : public ZipUnderTest {
public:
    ZipInMemoryUnderTest() : ZipUnderTest(u"/") {
        m_memory->createFile(m_container.getLocation());
        start();
    }
    bool makeReadOnly() override {
        m_memory->setReadOnly(true);
        reopen();
        return true;
    }

protected:
    const Container& container() const override { return m_container; }
    ArchiveVerdict verdict() const override {
        return verdictOf(readFile(*m_memory, m_container.getLocation()));
    }

private:
    const std::shared_ptr<InMemoryProvider> m_memory = std::make_shared<InMemoryProvider>();
    const Container m_container{m_memory, m_memory->at(u"/plans.zip")};
};

/// The archive in a local file, and what that needs.
class ZipInLocalFileUnderTest : public ZipUnderTest {
public:
    ZipInLocalFileUnderTest() : ZipUnderTest(u"/the/root") {
        m_files->createFile(m_container.getLocation());
        start();
    }
    /// A file without any write permission counts as read-only, for the superuser too.
    bool makeReadOnly() override {
        std::filesystem::permissions(m_folder.file("plans.zip"), std::filesystem::perms::owner_read);
        reopen();
        return true;
    }

protected:
    const Container& container() const override { return m_container; }
    ArchiveVerdict verdict() const override { return verifyArchive(m_folder.file("plans.zip")); }

private:
    storage::fileprovider::LocalFileOptions options() const {
        storage::fileprovider::LocalFileOptions options;
        options.sync = false;
        options.stateFolder = m_state.path().string();
        return options;
    }

    const TemporaryFolder m_folder;
    const TemporaryFolder m_state;
    const std::shared_ptr<provider::IProvider> m_files =
        storage::fileprovider::LocalFileProvider::create(options());
    const Container m_container{m_files, m_folder.iri("plans.zip")};
};

class ZipInZipUnderTest final : public ZipUnderTest {
public:
    ZipInZipUnderTest() : ZipUnderTest(u"/root") {
        m_memory->createFile(m_memory->at(u"/outer.zip"));
        openOuter();
        m_outer->createFile(m_inner->getLocation());
        start();
    }
    void reopen() override {
        ZipUnderTest::reopen();
        openOuter();
        ZipUnderTest::reopen();
    }
    bool makeReadOnly() override {
        m_memory->setReadOnly(true);
        reopen();
        return true;
    }

protected:
    const Container& container() const override { return *m_inner; }
    ArchiveVerdict verdict() const override {
        const auto outer = verdictOf(readFile(*m_memory, m_memory->at(u"/outer.zip")));
        EXPECT_EQ(outer.problems(), "");
        EXPECT_EQ(outer.names(), std::vector<std::string>{"inner.zip"});
        const auto inner = outer.inside.find("inner.zip");
        return inner == outer.inside.end() ? ArchiveVerdict() : inner->second;
    }

private:
    void openOuter() {
        const Container outer(m_memory, m_memory->at(u"/outer.zip"));
        m_outer = openZip(outer);
        m_inner.emplace(m_outer,
                        provider::StorageIRI::inContainer("zip", outer.getLocation(), u"/inner.zip"));
    }

    const std::shared_ptr<InMemoryProvider> m_memory = std::make_shared<InMemoryProvider>();
    std::shared_ptr<provider::IProvider> m_outer;
    std::optional<Container> m_inner;
};

template <typename Tested>
std::unique_ptr<ProviderUnderTest> readOnly() {
    auto tested = withStandardTree([] { return std::make_unique<Tested>(); })();
    tested->makeReadOnly();
    return tested;
}

} // namespace

KX_PROVIDER_CONFORMANCE(ZipInMemory, [] { return std::make_unique<ZipInMemoryUnderTest>(); });
KX_PROVIDER_CONFORMANCE(ZipInLocalFile, [] { return std::make_unique<ZipInLocalFileUnderTest>(); });
KX_PROVIDER_CONFORMANCE(ZipInZip, [] { return std::make_unique<ZipInZipUnderTest>(); });
KX_READING_CONFORMANCE(ReadOnlyZip, readOnly<ZipInMemoryUnderTest>);
KX_READING_CONFORMANCE(ReadOnlyZipInLocalFile, readOnly<ZipInLocalFileUnderTest>);

} // namespace kx::test
