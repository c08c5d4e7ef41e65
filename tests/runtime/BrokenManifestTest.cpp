#include <runtime/BundleFile.h>
#include <runtime/RuntimeTest.h>

#include <cppmicroservices/SharedLibraryException.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <string>

namespace runtime {
namespace {

using bundle::Greeting;
using cppmicroservices::Bundle;

/// The bytes of a ZIP archive, or of none, behind a library.
class BrokenManifest : public RuntimeTest {
protected:
    void expectRefused(const std::string& path) {
        EXPECT_THROW(context().InstallBundles(path), std::runtime_error);
        EXPECT_TRUE(context().GetBundles(path).empty());
    }

    std::string withManifest(const std::string& manifest, const std::string& code = std::string()) {
        return m_folder.bundle("libbroken" + std::to_string(++m_made) + ".so", code,
                               {{"broken/manifest.json", manifest}});
    }

    /// The bundle "broken" with these members in its manifest, started.
    Bundle started(const std::string& members) {
        Bundle result =
            context()
                .InstallBundles(withManifest(R"({"bundle.symbolic_name": "broken", )" + members + "}",
                                             readFile(greetingBundle)))
                .at(0);
        result.Start();
        return result;
    }

    static std::string component(const std::string& members) {
        return R"("scr": {"version": 1, "components": [{)" + members + "}]}";
    }

    const BundleFolder m_folder;

private:
    int m_made = 0;
};

TEST_F(BrokenManifest, AFileThatIsNoBundleIsRefusedAtTheInstallation) {
    expectRefused((m_folder.path() / "none.so").string());
    expectRefused(m_folder.file("libempty.so", ""));
    expectRefused(m_folder.file("libtext.so", "not code"));
}

TEST_F(BrokenManifest, ALibraryWithoutAnArchiveIsRefusedAtTheInstallation) {
    const std::string bytes = readFile(greetingBundle);
    expectRefused(m_folder.file("libbare.so", bytes.substr(0, bytes.find("PK\x03\x04"))));
}

TEST_F(BrokenManifest, OneThatIsNoJsonObjectIsRefusedAtTheInstallation) {
    expectRefused(withManifest("{\"a\": 1,\n oops}"));
    expectRefused(withManifest("[1, 2]"));
    expectRefused(withManifest(""));
}

TEST_F(BrokenManifest, OneWithoutASymbolicNameIsRefusedAtTheInstallation) {
    expectRefused(withManifest("{}"));
    expectRefused(withManifest(R"({"bundle.symbolic_name": ""})"));
}

TEST_F(BrokenManifest, OneWithAVersionThatIsNoneIsRefusedAtTheInstallation) {
    expectRefused(withManifest(R"({"bundle.symbolic_name": "broken", "bundle.version": 5})"));
    expectRefused(withManifest(R"({"bundle.symbolic_name": "broken", "bundle.version": "one.two"})"));
}

TEST_F(BrokenManifest, ASecondBundleOfTheSameNameAndVersionIsRefusedAtTheInstallation) {
    installGreeting();
    expectRefused(m_folder.file("libcopy.so", readFile(greetingBundle)));
}

TEST_F(BrokenManifest, ABundleIsInstalledThoughAnotherOneWasRefused) {
    expectRefused(withManifest("{}"));
    startGreeting();
    EXPECT_NE(findOne("(language=en)"), nullptr);
}

TEST_F(BrokenManifest, ALibraryThatCannotBeLoadedFailsWhenItsServiceIsAskedFor) {
    Bundle bundle =
        context()
            .InstallBundles(withManifest(
                R"({"bundle.symbolic_name": "broken", )" +
                    component(R"("implementation-class": "a::b", "service": {"interfaces": ["i"]})") + "}",
                "not code"))
            .at(0);
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    const auto references = context().GetServiceReferences("i");
    ASSERT_EQ(references.size(), 1U);
    for (int i = 0; i < 2; ++i) {
        try {
            context().GetService(references.front());
            FAIL() << "it was loaded";
        } catch (const cppmicroservices::SharedLibraryException& error) {
            EXPECT_TRUE(error.GetBundle() == bundle);
        }
    }
}

TEST_F(BrokenManifest, AComponentWhoseFunctionsAreNotExportedGivesANullService) {
    started(component(
        R"("implementation-class": "runtime::Nobody", "service": {"interfaces": ["runtime::bundle::Greeting"]})"));
    const auto references = context().GetServiceReferences<Greeting>();
    ASSERT_EQ(references.size(), 1U);
    EXPECT_EQ(context().GetService(references.front()), nullptr);
}

struct BadDescription {
    const char* name;
    const char* members;
};

void PrintTo(const BadDescription& bad, std::ostream* out) {
    *out << bad.members;
}

class BadComponentDescription : public BrokenManifest, public testing::WithParamInterface<BadDescription> {};

TEST_P(BadComponentDescription, MakesNoServiceOfAStartedBundle) {
    Bundle bundle = started(GetParam().members);
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(bundle.GetRegisteredServices().empty());
    EXPECT_TRUE(context().GetServiceReferences<Greeting>().empty());
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
}

#define WITH_COMPONENT(members) R"("scr": {"version": 1, "components": [{)" members "}]}"
#define NAMED R"("implementation-class": "runtime::bundle::Greeter", )"
#define SERVING R"("service": {"interfaces": ["runtime::bundle::Greeting"]})"

INSTANTIATE_TEST_SUITE_P(
    BrokenManifest, BadComponentDescription,
    testing::Values(
        BadDescription{"NoObject", R"("scr": 1)"},
        BadDescription{"NoVersion", R"("scr": {"components": [{)" NAMED SERVING "}]}"},
        BadDescription{"AVersionThatIsText",
                       R"("scr": {"version": "1", "components": [{)" NAMED SERVING "}]}"},
        BadDescription{"ALaterVersion", R"("scr": {"version": 2, "components": [{)" NAMED SERVING "}]}"},
        BadDescription{"NoComponents", R"("scr": {"version": 1})"},
        BadDescription{"AComponentThatIsANumber", R"("scr": {"version": 1, "components": [5]})"},
        BadDescription{"NoClass", WITH_COMPONENT(SERVING)},
        BadDescription{"AClassWithoutAName", WITH_COMPONENT(R"("implementation-class": "", )" SERVING)},
        BadDescription{"NoInterfaces", WITH_COMPONENT(NAMED R"("service": {})")},
        BadDescription{"PropertiesThatAreAList", WITH_COMPONENT(NAMED R"("properties": [], )" SERVING)}),
    [](const auto& one) { return std::string(one.param.name); });

} // namespace
} // namespace runtime
