#include "MemoryArchive.h"

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/servicecomponent/detail/ComponentInstance.hpp>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <microservices/ComponentRuntime.h>
#include <support/FaultInjectingProvider.h>
#include <support/archives/ArchiveBuilder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <dlfcn.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kx::test;
using foundation::storage::provider::ContainerProviderFactory;
using foundation::storage::provider::IProvider;
using testing::IsEmpty;

/// The library itself, without any runtime.
class Library : public testing::Test {
protected:
    using Instance = cppmicroservices::service::component::detail::ComponentInstance;

    Library() : m_library(dlopen(KX_ZIP_BUNDLE, RTLD_NOW | RTLD_LOCAL)) {
        if (m_library == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~Library() override { dlclose(m_library); }

    template <typename Function>
    Function* function(const char* name) const {
        const auto address = reinterpret_cast<Function*>(dlsym(m_library, name));
        if (address == nullptr) {
            throw std::runtime_error(std::string("no function ") + name);
        }
        return address;
    }

    Instance* newInstance() const {
        return function<Instance*()>("NewInstance_storage_zipprovider_ZipProviderFactory")();
    }
    void deleteInstance(Instance* instance) const {
        function<void(Instance*)>("DeleteInstance_storage_zipprovider_ZipProviderFactory")(instance);
    }

private:
    void* m_library;
};

TEST_F(Library, DeletingANullInstanceDoesNothing) {
    EXPECT_NO_THROW(deleteInstance(nullptr));
}

TEST_F(Library, MakesAndDeletesComponentInstancesEachOnItsOwn) {
    Instance* const first = newInstance();
    Instance* const second = newInstance();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    deleteInstance(first);
    deleteInstance(second);
}

TEST_F(Library, AnInstanceProvidesTheContainerProviderFactoryAndNothingElse) {
    Instance* const instance = newInstance();
    ASSERT_NE(instance, nullptr);
    instance->CreateInstance(nullptr);
    const auto interfaces = instance->GetInterfaceMap();
    ASSERT_NE(interfaces, nullptr);
    ASSERT_EQ(interfaces->size(), 1u);
    EXPECT_EQ(interfaces->begin()->first, "foundation::storage::provider::ContainerProviderFactory");
    EXPECT_NE(interfaces->begin()->second, nullptr);
    deleteInstance(instance);
}

TEST_F(Library, TakesAContextFromAnyNumberOfThreads) {
    const auto set = function<void(void*)>("_us_set_bundle_context_instance_com_orbelkast_zipprovider");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([set] {
            for (int round = 0; round < 1000; ++round) {
                set(nullptr);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

/// The plug-in as a host loads it.
class Plugin : public testing::Test {
protected:
    Plugin() {
        m_framework.Start();
        const std::string services = microservices::declarativeServicesBundle();
        if (!services.empty()) {
            start(services);
        }
        start(KX_ZIP_BUNDLE);
    }
    ~Plugin() override {
        m_framework.Stop();
        m_framework.WaitForStop(std::chrono::milliseconds(0));
    }

    void start(const std::string& path) {
        for (auto& bundle : m_framework.GetBundleContext().InstallBundles(path)) {
            bundle.Start();
        }
    }

    std::shared_ptr<ContainerProviderFactory> factory(const std::string& filter = "(scheme=zip)") {
        auto context = m_framework.GetBundleContext();
        const auto references = context.GetServiceReferences<ContainerProviderFactory>(filter);
        return references.empty() ? nullptr : context.GetService(references.at(0));
    }

    std::uint64_t allCalls(const InMemoryProvider& memory) const {
        std::uint64_t calls = 0;
        for (int operation = 0; operation <= static_cast<int>(ProviderOperation::StreamClose); ++operation) {
            calls += memory.callCount(static_cast<ProviderOperation>(operation));
        }
        return calls;
    }

private:
    cppmicroservices::Framework m_framework = cppmicroservices::FrameworkFactory().NewFramework();
};

TEST_F(Plugin, OffersAContainerProviderFactoryForTheSchemeZip) {
    EXPECT_NE(factory(), nullptr);
    EXPECT_EQ(factory("(scheme=tar)"), nullptr);
    EXPECT_EQ(factory(), factory());
}

TEST_F(Plugin, ItsFactoryMakesAProviderForEachContainer) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "text"}}));
    const auto zips = factory();
    const auto provider = zips->createProvider(archive.item());
    ASSERT_NE(provider, nullptr);
    EXPECT_EQ(readFile(*provider, archive.at(u"/a.txt")), "text");
    EXPECT_NE(zips->createProvider(archive.item()), provider);
}

TEST_F(Plugin, ItsFactoryTellsTheContainersOwnLocation) {
    const MemoryArchive archive("");
    EXPECT_EQ(factory()->getContainerLocation(archive.item()), archive.item().getLocation());
    EXPECT_EQ(archive.memory()->callCount(ProviderOperation::OpenReadStream), 0u);
}

TEST_F(Plugin, AProviderCreatedAndDestroyedWithoutAnyCallTouchesNothing) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "text"}}));
    const auto before = allCalls(*archive.memory());
    factory()->createProvider(archive.item()).reset();
    EXPECT_EQ(allCalls(*archive.memory()), before);
}

TEST_F(Plugin, AProviderKeepsItsContainerUntilItGoes) {
    auto archive = std::make_unique<MemoryArchive>(simpleArchive({{"a.txt", "text"}}));
    const std::weak_ptr<InMemoryProvider> memory = archive->memory();
    const auto location = archive->at(u"/a.txt");
    auto provider = factory()->createProvider(archive->item());
    archive.reset();
    EXPECT_EQ(readFile(*provider, location), "text");
    provider.reset();
    EXPECT_TRUE(memory.expired());
}

TEST_F(Plugin, ThreadsThatUseAFreshProviderAtTheSameTimeReadTheDirectoryOnce) {
    for (int round = 0; round < 20; ++round) {
        const MemoryArchive archive(simpleArchive({{"docs/a.txt", "text"}}));
        const auto provider = factory()->createProvider(archive.item());
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                EXPECT_TRUE(provider->isFolder(archive.at(u"/docs")));
                EXPECT_TRUE(provider->isFile(archive.at(u"/docs/a.txt")));
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(archive.memory()->callCount(ProviderOperation::OpenReadStream), 1u);
    }
}

TEST_F(Plugin, AProviderThatCouldNotReadItsContainerTriesAgainAtTheNextCall) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "text"}}));
    const auto plan = std::make_shared<FaultPlan>();
    const auto provider = factory()->createProvider(
        archive.itemOf(std::make_shared<FaultInjectingProvider>(archive.memory(), plan)));
    plan->failCall(1, {ProviderOperation::OpenReadStream});
    EXPECT_THROW(provider->isFile(archive.at(u"/a.txt")), foundation::storage::provider::Exception);
    EXPECT_TRUE(provider->isFile(archive.at(u"/a.txt")));
}

TEST_F(Plugin, DestroyingAProviderWithPendingChangesWritesThemToTheArchive) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "old"}}));
    const auto plan = std::make_shared<FaultPlan>();
    auto provider = factory()->createProvider(
        archive.itemOf(std::make_shared<FaultInjectingProvider>(archive.memory(), plan)));
    auto stream = provider->openStream(archive.at(u"/a.txt"), {});
    writeAll(*stream, "new");
    plan->failCall(1, {ProviderOperation::OpenStream});
    EXPECT_THROW(stream->close(), foundation::storage::provider::Exception);
    stream.reset();
    EXPECT_EQ(archive.bytes(), simpleArchive({{"a.txt", "old"}}));

    provider.reset();
    const auto reader = factory()->createProvider(archive.item());
    EXPECT_EQ(readFile(*reader, archive.at(u"/a.txt")), "new");
}

TEST_F(Plugin, DestroyingAProviderSwallowsAFailureToWriteItsPendingChanges) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "old"}}));
    const auto before = archive.bytes();
    const auto plan = std::make_shared<FaultPlan>();
    auto provider = factory()->createProvider(
        archive.itemOf(std::make_shared<FaultInjectingProvider>(archive.memory(), plan)));
    auto stream = provider->openStream(archive.at(u"/a.txt"), {});
    plan->failCall(1, {ProviderOperation::OpenStream}, FaultPlan::Afterwards::FailsOn);
    EXPECT_THROW(stream->close(), foundation::storage::provider::Exception);
    stream.reset();
    EXPECT_EQ(plan->failures(), 1u);
    EXPECT_NO_THROW(provider.reset());
    EXPECT_EQ(plan->failures(), 2u);
    EXPECT_EQ(archive.bytes(), before);
    EXPECT_EQ(archive.memory()->openStreamCount(), 0u);
}

TEST_F(Plugin, AProviderOutlivesTheFactoryThatMadeIt) {
    const MemoryArchive archive(simpleArchive({{"a.txt", "text"}}));
    auto zips = factory();
    const auto provider = zips->createProvider(archive.item());
    zips.reset();
    EXPECT_EQ(readFile(*provider, archive.at(u"/a.txt")), "text");
}

TEST_F(Plugin, AProviderWhoseChangesAreBeingWatchedCanBeDestroyedAtAnyTime) {
    for (int round = 0; round < 20; ++round) {
        const MemoryArchive archive(simpleArchive({{"docs/a.txt", "text"}}));
        auto provider = factory()->createProvider(archive.item());
        provider->publishFolderEventsFor(archive.at(u"/docs"), [](const auto&) {});
        provider->startChangePollingMechanism(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 4));
        provider.reset();
    }
}

} // namespace
