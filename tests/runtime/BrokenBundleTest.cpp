#include <runtime/BundleFile.h>
#include <runtime/RuntimeTest.h>

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/SharedLibraryException.h>

#include <gmock/gmock.h>

#include <sstream>

namespace runtime {
namespace {

using cppmicroservices::Bundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class BrokenBundle : public RuntimeTest {
protected:
    std::string failureOfInstalling(const std::string& path) {
        try {
            context().InstallBundles(path);
        } catch (const std::runtime_error& error) {
            EXPECT_TRUE(context().GetBundles(path).empty());
            return error.what();
        }
        return "it was installed";
    }

    std::string failureOfStarting(const std::string& path) {
        Bundle bundle = context().InstallBundles(path).at(0);
        try {
            bundle.Start();
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
            EXPECT_TRUE(context().GetServiceReferences<bundle::Greeting>().empty());
            EXPECT_FALSE(bundle.GetBundleContext());
            bundle.Uninstall();
            return error.what();
        }
        return "it was started";
    }

    /// What the framework's logger is told of a bundle that is started, asked for its services, which must
    /// give objects or not, and uninstalled.
    std::string logOfStarting(const std::string& path, bool givesObjects = false) const {
        std::ostringstream log;
        cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework(
            {{cppmicroservices::Constants::FRAMEWORK_LOG, true}}, &log);
        framework.Start();
        cppmicroservices::BundleContext logged = framework.GetBundleContext();
        Bundle bundle = logged.InstallBundles(path).at(0);
        bundle.Start();
        for (const auto& reference : logged.GetServiceReferences<bundle::Greeting>())
            EXPECT_EQ(logged.GetService(reference) != nullptr, givesObjects);
        bundle.Uninstall();
        EXPECT_EQ(bundle.GetState(), Bundle::STATE_UNINSTALLED);
        EXPECT_TRUE(logged.GetServiceReferences<bundle::Greeting>().empty());
        framework.Stop();
        return log.str();
    }

    /// A bundle "broken" that has the code of the greeting bundle and a manifest with these members in
    /// addition.
    std::string withManifest(const std::string& members, const std::string& code = readFile(greetingBundle)) {
        return m_folder.bundle(
            "libbroken.so", code,
            {{"broken/manifest.json", R"({"bundle.symbolic_name": "broken", )" + members + "}"}});
    }

    static std::string component(const std::string& members) {
        return R"("scr": {"version": 1, "components": [{)" + members + "}]}";
    }

    /// A component of the greeting bundle's code that is to offer these interfaces.
    static std::string component(const std::string& name, const std::string& interfaces,
                                 const std::string& properties = "{}") {
        return component(R"("implementation-class": "runtime::bundle::)" + name + R"(", "properties": )" +
                         properties + R"(, "service": {"interfaces": [)" + interfaces + "]}");
    }

    /// Why a service of the started bundle at `path`, which describes the component `greeter`, is not given.
    std::system_error failureOfAsking(const std::string& path) {
        Bundle bundle = context().GetBundles(path).at(0);
        try {
            findOne("");
        } catch (const cppmicroservices::SharedLibraryException& error) {
            EXPECT_TRUE(error.GetBundle() == bundle);
            return error;
        }
        ADD_FAILURE() << "it was loaded";
        return std::system_error(std::error_code());
    }

    static constexpr const char* greeter =
        R"("scr": {"version": 1, "components": [{"implementation-class": "runtime::bundle::Greeter",)"
        R"( "service": {"interfaces": ["runtime::bundle::Greeting"]}}]})";

    BundleFolder m_folder;
};

TEST_F(BrokenBundle, AFileThatIsNotThereIsNamed) {
    const std::string path = (m_folder.path() / "none.so").string();
    EXPECT_THAT(failureOfInstalling(path),
                AllOf(StartsWith("cannot install " + path + ": "), HasSubstr("No such file")));
}

TEST_F(BrokenBundle, AFolderIsRefused) {
    EXPECT_THAT(failureOfInstalling(m_folder.path().string()), HasSubstr("not a file"));
}

TEST_F(BrokenBundle, AnEmptyFileIsRefused) {
    const std::string path = m_folder.file("libempty.so", "");
    EXPECT_EQ(failureOfInstalling(path),
              "cannot install " + path + ": it has no manifest: no ZIP archive stands at its end");
}

TEST_F(BrokenBundle, ALibraryWithoutAnArchiveIsRefused) {
    const std::string bytes = readFile(greetingBundle);
    const std::string path = m_folder.file("libbare.so", bytes.substr(0, bytes.find("PK\x03\x04")));
    EXPECT_EQ(failureOfInstalling(path),
              "cannot install " + path + ": it has no manifest: no ZIP archive stands at its end");
}

TEST_F(BrokenBundle, AnArchiveWithoutAManifestIsRefused) {
    const std::string path = m_folder.bundle(
        "libother.so", "", {{"manifest.json", "{}"}, {"a/b/manifest.json", "{}"}, {"a/data", "x"}});
    EXPECT_EQ(failureOfInstalling(path),
              "cannot install " + path +
                  ": it has no manifest: its ZIP archive has no entry <symbolic name>/manifest.json");
}

TEST_F(BrokenBundle, AManifestThatIsNotJsonIsRefusedWithThePlace) {
    const std::string path =
        m_folder.bundle("libtext.so", "", {{"broken/manifest.json", "{\"a\": 1,\n oops}"}});
    EXPECT_THAT(
        failureOfInstalling(path),
        AllOf(HasSubstr(path), HasSubstr("its broken/manifest.json is not valid JSON"), HasSubstr("line 2")));
}

TEST_F(BrokenBundle, ADamagedArchiveIsRefused) {
    std::string archive = m_folder.archive(
        {{"broken/manifest.json", R"({"bundle.symbolic_name": "broken"})"}, {"broken/data", "x"}});
    archive[archive.rfind("PK\x01\x02")] = 'X';
    const std::string path = m_folder.file("libdamaged.so", archive);
    EXPECT_EQ(failureOfInstalling(path), "cannot install " + path + ": its ZIP archive is damaged");
}

TEST_F(BrokenBundle, AManifestWithoutItsLocalHeaderIsRefused) {
    std::string archive = m_folder.archive({{"broken/manifest.json", "{}"}});
    archive[0] = 'X';
    const std::string path = m_folder.file("libheadless.so", archive);
    EXPECT_EQ(failureOfInstalling(path),
              "cannot install " + path + ": its broken/manifest.json cannot be read");
}

TEST_F(BrokenBundle, ANumberBeyondEveryIntegerIsRead) {
    Bundle bundle =
        context().InstallBundles(withManifest(R"("huge": 18446744073709551615, "low": -5000000000)")).at(0);
    EXPECT_EQ(cppmicroservices::any_cast<double>(bundle.GetHeaders().at("huge")), 18446744073709551615.0);
    EXPECT_EQ(cppmicroservices::any_cast<long long>(bundle.GetHeaders().at("low")), -5000000000LL);
}

TEST_F(BrokenBundle, AManifestThatIsNoObjectIsRefused) {
    const std::string path = m_folder.bundle("liblist.so", "", {{"broken/manifest.json", "[1, 2]"}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("its broken/manifest.json is not a JSON object"));
}

TEST_F(BrokenBundle, AManifestThatNestsWithoutEndIsRefused) {
    const std::string deep = "{\"a\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
    const std::string path = m_folder.bundle("libdeep.so", "", {{"broken/manifest.json", deep}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("is nested too deeply"));
}

TEST_F(BrokenBundle, AManifestThatIsHugeIsRefused) {
    const std::string huge = "{\"a\":\"" + std::string(std::size_t(17) << 20, 'x') + "\"}";
    const std::string path = m_folder.bundle("libhuge.so", "", {{"broken/manifest.json", huge}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("is larger than 16 MiB"));
}

TEST_F(BrokenBundle, AManifestWithoutASymbolicNameIsRefused) {
    const std::string path = m_folder.bundle("libanon.so", "", {{"broken/manifest.json", "{}"}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("its broken/manifest.json lacks bundle.symbolic_name"));
}

TEST_F(BrokenBundle, AManifestThatNamesAnotherBundleIsRefused) {
    const std::string path = m_folder.bundle(
        "libalias.so", "", {{"broken/manifest.json", R"({"bundle.symbolic_name": "whole"})"}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("has the bundle.symbolic_name 'whole'"));
}

TEST_F(BrokenBundle, ADamagedManifestIsRefused) {
    std::string bytes = readFile(greetingBundle);
    const std::size_t local = bytes.find("PK\x03\x04");
    bytes[local + 30 + std::string("test_greeting/manifest.json").size() + 40] ^= 0x55;
    const std::string path = m_folder.file("libdamaged.so", bytes);
    EXPECT_THAT(failureOfInstalling(path),
                AllOf(StartsWith("cannot install " + path), HasSubstr("is damaged")));
}

TEST_F(BrokenBundle, ASecondBundleOfTheSameNameAndVersionIsRefused) {
    installGreeting();
    const std::string path = m_folder.file("libcopy.so", readFile(greetingBundle));
    EXPECT_THAT(failureOfInstalling(path), AllOf(HasSubstr("test_greeting"), HasSubstr(greetingBundle)));
}

TEST_F(BrokenBundle, OneBadManifestOfSeveralKeepsAllFromBeingInstalled) {
    const std::string path = m_folder.bundle(
        "libtwo.so", "",
        {{"good/manifest.json", R"({"bundle.symbolic_name": "good"})"}, {"worse/manifest.json", "nonsense"}});
    EXPECT_THAT(failureOfInstalling(path), HasSubstr("worse/manifest.json"));
}

TEST_F(BrokenBundle, AFileThatIsNoLibraryCannotBeLoaded) {
    const std::string path = withManifest(greeter, "not code");
    context().InstallBundles(path).at(0).Start();
    const std::system_error error = failureOfAsking(path);
    EXPECT_THAT(error.what(), StartsWith("cannot load " + path + ": "));
    EXPECT_EQ(error.code(), std::errc::executable_format_error);
}

TEST_F(BrokenBundle, ALibraryThatWasRemovedSinceCannotBeLoaded) {
    const std::string path = withManifest(greeter);
    context().InstallBundles(path).at(0).Start();
    std::filesystem::remove(path);
    EXPECT_EQ(failureOfAsking(path).code(), std::errc::no_such_file_or_directory);
}

TEST_F(BrokenBundle, TheLogNamesTheFunctionThatAComponentLacks) {
    const std::string path = withManifest(component(
        R"("implementation-class": "runtime::Nobody", "service": {"interfaces": ["runtime::bundle::Greeting"]})"));
    EXPECT_THAT(logOfStarting(path), HasSubstr("cannot make component runtime::Nobody of " + path +
                                               ": it does not export NewInstance_runtime_Nobody"));
}

TEST_F(BrokenBundle, AComponentThatDoesNotOfferItsInterfaceGivesNoObject) {
    Bundle bundle =
        context()
            .InstallBundles(withManifest(component(
                R"("implementation-class": "runtime::bundle::Greeter", "service": {"interfaces": ["other"]})")))
            .at(0);
    bundle.Start();
    const auto references = context().GetServiceReferences("other");
    ASSERT_EQ(references.size(), 1U);
    EXPECT_EQ(context().GetService(references.front()), nullptr);
}

TEST_F(BrokenBundle, TheLogNamesTheInterfaceThatAnObjectLacks) {
    const std::string path =
        withManifest(component("Hermit", R"("runtime::bundle::Greeting", "runtime::bundle::Farewell")"));
    EXPECT_THAT(logOfStarting(path), HasSubstr("cannot make component runtime::bundle::Hermit of " + path +
                                               ": its object does not offer runtime::bundle::Farewell\n"));
}

TEST_F(BrokenBundle, TheLogNamesTheFunctionThatGaveNoObject) {
    const std::string path = withManifest(component("Absentee", R"("runtime::bundle::Greeting")"));
    EXPECT_THAT(logOfStarting(path), HasSubstr("cannot make component runtime::bundle::Absentee of " + path +
                                               ": NewInstance_runtime_bundle_Absentee returned no object\n"));
}

TEST_F(BrokenBundle, AComponentThatCannotBeDeactivatedIsLoggedAndGoesAllTheSame) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"reason": "it feels at home"})", "it feels at home"}, {"{}", "an exception of an unknown type"}};
    for (const auto& [properties, cause] : cases) {
        const std::string path =
            withManifest(component("Clinger", R"("runtime::bundle::Greeting")", properties));
        EXPECT_THAT(logOfStarting(path, true),
                    AllOf(HasSubstr("cannot deactivate component runtime::bundle::Clinger of " + path + ": " +
                                    cause + "\n"),
                          HasSubstr("uninstalled " + path)));
    }
}

TEST_F(BrokenBundle, AnActivatorIsRefused) {
    EXPECT_THAT(failureOfStarting(withManifest(R"("bundle.activator": true)")), HasSubstr("activator"));
}

struct BadDescription {
    const char* manifest;
    const char* message;
};

class BadComponentDescription : public BrokenBundle, public testing::WithParamInterface<BadDescription> {};

TEST_P(BadComponentDescription, IsLoggedWithItsPlaceInTheManifest) {
    const std::string path = withManifest(GetParam().manifest);
    EXPECT_THAT(logOfStarting(path), AllOf(HasSubstr("cannot make services of the components of " + path),
                                           HasSubstr(GetParam().message)));
}

#define WITH_COMPONENT(members) R"("scr": {"version": 1, "components": [{)" members "}]}"
#define NAMED R"("implementation-class": "a::b", )"
#define SERVED NAMED R"("service": {"interfaces": ["i"]}, )"

INSTANTIATE_TEST_SUITE_P(
    BrokenBundle, BadComponentDescription,
    testing::Values(
        BadDescription{R"("scr": 1)", "scr is not an object"},
        BadDescription{R"("scr": {"components": []})", "scr.version is missing"},
        BadDescription{R"("scr": {"version": "1", "components": []})", "scr.version is not a number"},
        BadDescription{R"("scr": {"version": 2, "components": []})", "scr.version is not 1"},
        BadDescription{R"("scr": {"version": 1})", "scr.components is missing"},
        BadDescription{R"("scr": {"version": 1, "components": [5]})",
                       "scr.components has an element that is not"},
        BadDescription{WITH_COMPONENT(""), "scr.components.0.implementation-class is missing"},
        BadDescription{WITH_COMPONENT(R"("implementation-class": "")"), "implementation-class is empty"},
        BadDescription{WITH_COMPONENT(NAMED R"("x": 1)"), "scr.components.0.service is missing"},
        BadDescription{WITH_COMPONENT(NAMED R"("service": {})"), "service.interfaces is missing"},
        BadDescription{WITH_COMPONENT(NAMED R"("service": {"interfaces": []})"),
                       "service.interfaces is empty"},
        BadDescription{WITH_COMPONENT(NAMED R"("service": {"interfaces": [1]})"),
                       "an element that is no name"},
        BadDescription{WITH_COMPONENT(NAMED R"("service": {"interfaces": ["i"], "scope": "bundle"})"),
                       "service.scope asks for something"},
        BadDescription{WITH_COMPONENT(SERVED R"("properties": [])"), "properties is not an object"},
        BadDescription{WITH_COMPONENT(SERVED R"("references": [{"name": "r"}])"),
                       "references asks for something"},
        BadDescription{WITH_COMPONENT(SERVED R"("immediate": true)"), "immediate asks for something"},
        BadDescription{WITH_COMPONENT(SERVED R"("enabled": false)"), "enabled asks for something"},
        BadDescription{WITH_COMPONENT(SERVED R"("factory": "f")"), "factory asks for something"}));

} // namespace
} // namespace runtime
