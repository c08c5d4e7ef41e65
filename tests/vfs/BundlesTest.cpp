#include "Fixture.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

using namespace kx::test;
using namespace storage::vfs;

namespace {

/// Where the providers of the front come from.
class BundlesTest : public InFolder {
protected:
    static std::string plans() { return simpleArchive({{"docs/a.txt", "text"}, {"b.txt", "b"}}); }

    /// The plug-in as the front finds it by itself.
    static std::filesystem::path zipBundle() { return Vfs().bundles().at(0).file; }

    /// A bundle of this code whose manifest promises a factory for "zip", made by a class.
    static std::string bundleOf(const std::string& code, const std::string& name,
                                const std::string& factory) {
        const auto manifest = R"({"bundle.symbolic_name": ")" + name +
                              R"(", "scr": {"version": 1, "components": [{"implementation-class": ")" +
                              factory +
                              R"(", "properties": {"scheme": "zip"}, "service": {"interfaces": )"
                              R"(["foundation::storage::provider::ContainerProviderFactory"]}}]}})";
        return code + simpleArchive({{name + "/manifest.json", manifest}});
    }

    /// Options whose warnings are collected.
    Vfs::Options recording(std::vector<std::filesystem::path> bundleFolders = {}) {
        Vfs::Options options;
        options.bundleFolders = std::move(bundleFolders);
        options.warn = [this](const std::string& message) { warnings.push_back(message); };
        return options;
    }

    std::vector<std::string> warnings;
};

} // namespace

TEST_F(BundlesTest, LocalFilesNeedNoBundle) {
    save("x.txt", "local");
    Vfs::Options options;
    options.bundleFolders = {folder.file("nowhere")};
    options.warn = [](const std::string& message) { ADD_FAILURE() << message; };
    Vfs vfs(options);
    EXPECT_EQ(read(vfs, folder.iri("x.txt")), "local");
}

TEST_F(BundlesTest, TheBundleBesideTheLibraryServesArchives) {
    save("plans.zip", plans());
    Vfs vfs;
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/docs/a.txt")), "text");
    EXPECT_EQ(vfs.schemes(), (std::vector<std::string>{"file", "zip"}));
    const auto bundles = vfs.bundles();
    ASSERT_EQ(bundles.size(), 1U);
    EXPECT_EQ(bundles[0].symbolicName, "com_orbelkast_zipprovider");
    EXPECT_EQ(bundles[0].problem, "");
    EXPECT_FALSE(Vfs::componentRuntime().empty());
}

TEST_F(BundlesTest, ABundleThatCannotBeLoadedIsNamedAndTheOthersServe) {
    save("providers/a/broken" KX_LIBRARY_SUFFIX, "no library");
    std::filesystem::create_directories(folder.file("providers/b"));
    save("plans.zip", plans());
    const auto bundle = zipBundle();
    std::filesystem::copy_file(bundle, folder.file("providers/b") / bundle.filename());
    Vfs vfs(recording({folder.file("providers")}));
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/b.txt")), "b");
    ASSERT_EQ(warnings.size(), 1U);
    const auto expected = "cannot load provider bundle " +
                          folder.file("providers/a/broken" KX_LIBRARY_SUFFIX).make_preferred().string() +
                          ": ";
    EXPECT_EQ(warnings[0].find(expected), 0U) << warnings[0];
    const auto bundles = vfs.bundles();
    ASSERT_EQ(bundles.size(), 2U);
    EXPECT_NE(bundles[0].problem, "");
    EXPECT_EQ(bundles[1].problem, "");
}

TEST_F(BundlesTest, ABundleWhoseLibraryOrManifestIsBrokenIsNamed) {
    save("providers/code" KX_LIBRARY_SUFFIX, bundleOf("no code", "code", "a::b"));
    save("providers/text" KX_LIBRARY_SUFFIX,
         "no code" + kx::test::simpleArchive(
                         {{"text/manifest.json", R"({"bundle.symbolic_name": "text", "scr": "nothing"})"}}));
    save("plans.zip", plans());
    Vfs vfs(recording({folder.file("providers")}));
    const auto failure = exceptionOf([&] { vfs.mount(inZip("plans.zip", u"/")); });
    EXPECT_EQ(failure.getCause(), "no provider serves the scheme \"zip\"");
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_EQ(warnings[0], "cannot load provider bundle " +
                               folder.file("providers/text" KX_LIBRARY_SUFFIX).make_preferred().string() +
                               ": its manifest describes no component that can be used");
    const auto expected = "cannot use provider bundle " +
                          folder.file("providers/code" KX_LIBRARY_SUFFIX).make_preferred().string() + ": ";
    EXPECT_EQ(warnings[1].find(expected), 0U) << warnings[1];
}

TEST_F(BundlesTest, ABundleThatMakesNoFactoryIsNamedAndTheOthersServe) {
    const auto idle = save("providers/a" KX_LIBRARY_SUFFIX,
                           bundleOf(load(KX_GREETING_BUNDLE), "idle", "runtime::bundle::Sulker"));
    std::filesystem::copy_file(zipBundle(), folder.file("providers/b" KX_LIBRARY_SUFFIX));
    save("plans.zip", plans());
    Vfs vfs(recording({folder.file("providers")}));
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/b.txt")), "b");
    EXPECT_EQ(warnings, (std::vector<std::string>{"cannot use provider bundle " +
                                                  std::filesystem::path(idle).make_preferred().string() +
                                                  ": it makes no provider factory"}));
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/docs/a.txt")), "text");
    EXPECT_EQ(warnings.size(), 1U);
}

TEST_F(BundlesTest, TheEnvironmentSaysWhereBundlesAre) {
    setenv("KXVFS_PROVIDERS", folder.file("nowhere").c_str(), 1);
    {
        Vfs vfs(recording());
        EXPECT_EQ(vfs.schemes(), (std::vector<std::string>{"file"}));
    }
    unsetenv("KXVFS_PROVIDERS");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0].find("cannot look for providers in " + folder.file("nowhere").string() + ": "), 0U);
}
