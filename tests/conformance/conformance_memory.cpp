#include "ProviderConformance.h"

#include <support/FaultInjectingProvider.h>
#include <support/ForwardingProvider.h>
#include <support/InMemoryProvider.h>

namespace kx::test {

namespace {

class MemoryUnderTest : public ProviderUnderTest {
public:
    explicit MemoryUnderTest(std::shared_ptr<InMemoryProvider> memory = std::make_shared<InMemoryProvider>())
        : m_memory(std::move(memory)), m_root(m_memory->at(u"/the/root")) {
        m_memory->createFolderRecursive(m_root);
    }

    provider::IProvider& get() override { return *m_memory; }
    provider::StorageIRI root() override { return m_root; }
    ProviderTraits traits() const override {
        ProviderTraits traits;
        traits.keepsOldContentsOnDiscard = true;
        traits.deepestFolder = 300;
        return traits;
    }
    bool makeReadOnly() override {
        m_memory->setReadOnly(true);
        return true;
    }

protected:
    const std::shared_ptr<InMemoryProvider>& memory() const { return m_memory; }

private:
    const std::shared_ptr<InMemoryProvider> m_memory;
    const provider::StorageIRI m_root;
};

/// Through a provider that hands everything on.
class ForwardedMemoryUnderTest final : public MemoryUnderTest {
public:
    provider::IProvider& get() override { return m_forwarding; }

private:
    ForwardingProvider m_forwarding{memory()};
};

/// Through a provider whose streams read a few bytes at a time.
class ShortReadsUnderTest final : public MemoryUnderTest {
public:
    ShortReadsUnderTest() { m_plan->limitReads(1000); }

    provider::IProvider& get() override { return m_provider; }
    // What reads in one call and relies on a full buffer is caught with files of many pieces.
    ProviderTraits traits() const override {
        auto traits = MemoryUnderTest::traits();
        traits.largeFile = 500'000;
        return traits;
    }

private:
    const std::shared_ptr<FaultPlan> m_plan = std::make_shared<FaultPlan>();
    FaultInjectingProvider m_provider{memory(), m_plan};
};

std::unique_ptr<ProviderUnderTest> readOnlyMemory() {
    auto tested = withStandardTree([] { return std::make_unique<MemoryUnderTest>(); })();
    tested->makeReadOnly();
    return tested;
}

} // namespace

KX_PROVIDER_CONFORMANCE(InMemory, [] { return std::make_unique<MemoryUnderTest>(); });
KX_PROVIDER_CONFORMANCE(Forwarded, [] { return std::make_unique<ForwardedMemoryUnderTest>(); });
KX_PROVIDER_CONFORMANCE(WithShortReads, [] { return std::make_unique<ShortReadsUnderTest>(); });
KX_READING_CONFORMANCE(ReadOnly, readOnlyMemory);

} // namespace kx::test
