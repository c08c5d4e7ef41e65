#include "ProviderConformance.h"

#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>

#include <filesystem>
#include <utility>

namespace kx::test {

namespace {

using Container = provider::StorageItem;

std::shared_ptr<provider::IProvider> openZip(const Container& container) {
    return storage::zipprovider::ZipProviderFactory().createProvider(container);
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

protected:
    explicit ZipUnderTest(fl::i18n::ustring root) : m_root(std::move(root)) {}

    virtual const Container& container() const = 0;
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
