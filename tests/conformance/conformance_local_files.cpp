#include "ProviderConformance.h"

#include <storage/fileprovider/LocalFileProvider.h>
#include <support/TemporaryFolder.h>

#include <sys/mount.h>

namespace kx::test {

namespace {

class LocalFilesUnderTest final : public ProviderUnderTest {
public:
    LocalFilesUnderTest() { reopen(); }
    ~LocalFilesUnderTest() override {
        if (m_mounted) {
            ::umount2(path().c_str(), MNT_DETACH);
        }
    }

    provider::IProvider& get() override { return *m_provider; }
    provider::StorageIRI root() override { return m_folder.iri(); }
    ProviderTraits traits() const override {
        ProviderTraits traits;
        traits.keepsOldContentsOnDiscard = true;
        return traits;
    }
    void reopen() override {
        storage::fileprovider::LocalFileOptions options;
        options.stateFolder = m_state.path().string();
        m_provider = storage::fileprovider::LocalFileProvider::create(options);
    }
    /// By a mount, which only the superuser may make.
    bool makeReadOnly() override {
        constexpr unsigned long remount = MS_REMOUNT | MS_BIND | MS_RDONLY;
        m_mounted = ::mount(path().c_str(), path().c_str(), nullptr, MS_BIND, nullptr) == 0;
        return m_mounted && ::mount(nullptr, path().c_str(), nullptr, remount, nullptr) == 0;
    }

private:
    std::string path() const { return m_folder.path().string(); }

    const TemporaryFolder m_folder;
    const TemporaryFolder m_state;
    bool m_mounted = false;
    std::shared_ptr<provider::IProvider> m_provider;
};

} // namespace

KX_PROVIDER_CONFORMANCE(LocalFiles, [] { return std::make_unique<LocalFilesUnderTest>(); });

} // namespace kx::test
