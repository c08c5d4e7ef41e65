#include "ProviderConformance.h"
#include "ReadOnlyView.h"
#include "SystemTraits.h"

#include <storage/fileprovider/LocalFileProvider.h>
#include <support/TemporaryFolder.h>

#include <optional>

namespace kx::test {

namespace {

class LocalFilesUnderTest final : public ProviderUnderTest {
public:
    LocalFilesUnderTest() { reopen(); }

    provider::IProvider& get() override { return *m_provider; }
    provider::StorageIRI root() override { return m_folder.iri(); }
    ProviderTraits traits() const override {
        ProviderTraits traits;
        traits.keepsOldContentsOnDiscard = true;
        setSystemTraits(traits);
        return traits;
    }
    void reopen() override {
        storage::fileprovider::LocalFileOptions options;
        options.stateFolder = m_state.path().string();
        m_provider = storage::fileprovider::LocalFileProvider::create(options);
    }
    bool makeReadOnly() override { return m_view.emplace(m_folder.path()).isMade(); }

private:
    const TemporaryFolder m_folder;
    const TemporaryFolder m_state;
    std::optional<ReadOnlyView> m_view;
    std::shared_ptr<provider::IProvider> m_provider;
};

} // namespace

KX_PROVIDER_CONFORMANCE(LocalFiles, [] { return std::make_unique<LocalFilesUnderTest>(); });

} // namespace kx::test
