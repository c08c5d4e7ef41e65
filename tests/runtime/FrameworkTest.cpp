#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/BundleResource.h>
#include <cppmicroservices/BundleResourceStream.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <microservices/ComponentRuntime.h>

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <string>

namespace {

using cppmicroservices::Bundle;
using cppmicroservices::BundleContext;
using foundation::storage::provider::ContainerProviderFactory;

/// The plug-in in CppMicroServices itself: what the embedded runtime has no counterpart of.
class CppMicroServices : public testing::Test {
protected:
    CppMicroServices() { m_framework.Start(); }
    ~CppMicroServices() override {
        m_framework.Stop();
        m_framework.WaitForStop(std::chrono::milliseconds(0));
    }

    BundleContext context() const { return m_framework.GetBundleContext(); }
    Bundle install(const std::string& path) const { return context().InstallBundles(path).at(0); }

private:
    cppmicroservices::Framework m_framework = cppmicroservices::FrameworkFactory().NewFramework();
};

TEST_F(CppMicroServices, IsNamedAsTheRuntimeWithItsVersion) {
    EXPECT_EQ(std::string(microservices::componentRuntimeName()).rfind("CppMicroServices 3.", 0), 0U);
}

TEST_F(CppMicroServices, ServesAPluginThatWasStartedBeforeItsDeclarativeServices) {
    install(KX_ZIP_BUNDLE).Start();
    EXPECT_FALSE(context().GetServiceReference<ContainerProviderFactory>());
    install(microservices::declarativeServicesBundle()).Start();
    const auto found = context().GetServiceReferences<ContainerProviderFactory>("(scheme=zip)");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(context().GetService(found.front()), nullptr);
}

TEST_F(CppMicroServices, ReadsTheManifestAsAResourceOfThePlugin) {
    const auto manifest = install(KX_ZIP_BUNDLE).GetResource("manifest.json");
    ASSERT_TRUE(manifest.IsValid());
    cppmicroservices::BundleResourceStream stream(manifest);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    EXPECT_NE(text.find("\"com_orbelkast_zipprovider\""), std::string::npos);
}

TEST_F(CppMicroServices, WithdrawsTheServiceWithItsDeclarativeServices) {
    install(KX_ZIP_BUNDLE).Start();
    Bundle services = install(microservices::declarativeServicesBundle());
    services.Start();
    EXPECT_TRUE(context().GetServiceReference<ContainerProviderFactory>());
    services.Stop();
    EXPECT_FALSE(context().GetServiceReference<ContainerProviderFactory>());
}

} // namespace
