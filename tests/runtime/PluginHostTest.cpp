// A host that uses nothing but the public interface of CppMicroServices 3, as one outside this source tree
// does.

#include <support/TemporaryFolder.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/IndependentReaders.h>
#include <support/contents.h>

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceReference.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/LocalFileProvider.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace kx::test;
using cppmicroservices::Bundle;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkFactory;
using cppmicroservices::ServiceReference;
using foundation::storage::provider::ContainerProviderFactory;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::StorageItem;
using testing::ElementsAre;

/// One run of a framework, with what it needs to make components into services.
class Host {
public:
    Host() : m_framework(FrameworkFactory().NewFramework()) {
        m_framework.Start();
        for (const std::string& path : std::vector<std::string>{KX_DECLARATIVE_SERVICES})
            for (Bundle& bundle : m_framework.GetBundleContext().InstallBundles(path))
                bundle.Start();
    }
    ~Host() {
        m_framework.Stop();
        m_framework.WaitForStop(std::chrono::milliseconds(0));
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    Bundle install() { return m_framework.GetBundleContext().InstallBundles(KX_ZIP_BUNDLE).at(0); }

    std::vector<ServiceReference<ContainerProviderFactory>> found() {
        return m_framework.GetBundleContext().GetServiceReferences<ContainerProviderFactory>("(scheme=zip)");
    }

    std::shared_ptr<ContainerProviderFactory> factory() {
        return m_framework.GetBundleContext().GetService(found().at(0));
    }

    bool knows(long bundle) { return static_cast<bool>(m_framework.GetBundleContext().GetBundle(bundle)); }

private:
    Framework m_framework;
};

class PluginHost : public testing::Test {
protected:
    PluginHost() { std::ofstream(m_archive, std::ios::binary) << simpleArchive({{"docs/a.txt", "text"}}); }

    StorageItem container() const {
        const auto location = StorageIRI::fromLocalPath(m_archive.generic_u16string());
        return {storage::fileprovider::LocalFileProvider::create(), location};
    }

    StorageIRI at(fl::i18n::ustring_view path) const {
        return StorageIRI::inContainer("zip", container().getLocation(), path);
    }

    /// Works through the archive with a provider of the factory; `round` makes the written name.
    void use(ContainerProviderFactory& factory, int round) const {
        const std::shared_ptr<IProvider> provider = factory.createProvider(container());
        ASSERT_NE(provider, nullptr);
        EXPECT_EQ(readFile(*provider, at(u"/docs/a.txt")), "text");
        const auto name = u"/docs/round" + fl::i18n::ustring(static_cast<std::size_t>(round) + 1, u'+');
        writeFile(*provider, at(name), "written");
        EXPECT_EQ(readFile(*provider, at(name)), "written");
    }

    const TemporaryFolder m_folder;
    const std::filesystem::path m_archive = m_folder.path() / "archive.zip";
};

TEST_F(PluginHost, LoadsStartsStopsUninstallsAndLoadsThePluginAgain) {
    Host host;
    for (int round = 0; round < 3; ++round) {
        Bundle bundle = host.install();
        EXPECT_EQ(bundle.GetSymbolicName(), "com_orbelkast_zipprovider");
        EXPECT_TRUE(host.found().empty());
        bundle.Start();
        ASSERT_EQ(host.found().size(), 1U);
        use(*host.factory(), round);
        bundle.Stop();
        EXPECT_TRUE(host.found().empty());
        bundle.Start();
        use(*host.factory(), round);
        bundle.Uninstall();
        EXPECT_TRUE(host.found().empty());
        EXPECT_FALSE(host.knows(bundle.GetBundleId()));
    }
    const ArchiveVerdict verdict = verifyArchive(m_archive);
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_THAT(verdict.names(), ElementsAre("docs/a.txt", "docs/round+", "docs/round++", "docs/round+++"));
}

TEST_F(PluginHost, LoadsThePluginInEachOfSeveralRunsOfAFramework) {
    for (int round = 0; round < 3; ++round) {
        Host host;
        host.install().Start();
        use(*host.factory(), round);
    }
    EXPECT_EQ(verifyArchive(m_archive).names().size(), 4U);
}

TEST_F(PluginHost, ReadsTheSchemeFromTheManifestBeforeAnythingIsStarted) {
    Host host;
    const Bundle bundle = host.install();
    EXPECT_EQ(bundle.GetHeaders().at("scheme").ToString(), "zip");
    EXPECT_EQ(bundle.GetHeaders().at("identifier").ToString(), "vornak.container.zip");
    EXPECT_NE(bundle.GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(PluginHost, GoesOnUsingAProviderWhoseBundleWasStopped) {
    Host host;
    Bundle bundle = host.install();
    bundle.Start();
    const std::shared_ptr<IProvider> provider = host.factory()->createProvider(container());
    auto stream = provider->openStream(at(u"/late.txt"), {});
    writeAll(*stream, "late");
    bundle.Stop();
    stream->close();
    EXPECT_EQ(readFile(*provider, at(u"/late.txt")), "late");
    EXPECT_EQ(verifyArchive(m_archive).problems(), "");
}

TEST_F(PluginHost, FindsNothingInAnInstalledPluginThatWasNotStarted) {
    Host host;
    host.install();
    EXPECT_TRUE(host.found().empty());
}

} // namespace
