#pragma once

#include <support/TemporaryFolder.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/IndependentReaders.h>
#include <support/archives/Process.h>
#include <support/archives/WrittenArchives.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

using Names = std::vector<std::string>;

/// Runs the tool in a folder of its own, with a folder for temporary files of its own. At the end of each
/// test independent readers judge every archive in either, other than those that the test saved itself.
class Tool : public ::testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(temporary.path()); }

    void TearDown() override {
        m_archives.addFolder(folder.path());
        m_archives.addFolder(temporary.path());
        EXPECT_EQ(m_archives.problems(), "");
    }

    static std::string binary() { return KX_TOOL; }

    ProcessOptions options() const {
        ProcessOptions result;
        result.directory = folder.path().string();
        result.environment = {{"TMPDIR", temporary.path().string()}, {"LC_ALL", "C.UTF-8"}};
        return result;
    }

    ProcessResult run(std::vector<std::string> arguments, const std::string& input = {}) const {
        auto with = options();
        with.input = input;
        arguments.insert(arguments.begin(), binary());
        return runProcess(arguments, with);
    }

    /// Runs the tool, which must not fail, and returns what it printed.
    std::string output(std::vector<std::string> arguments, const std::string& input = {}) const {
        const auto result = run(std::move(arguments), input);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        return result.output;
    }

    /// Runs the tool, which must fail with status 1, and returns its messages.
    std::string failure(std::vector<std::string> arguments, const std::string& input = {}) const {
        const auto result = run(std::move(arguments), input);
        EXPECT_EQ(result.exitCode, 1) << result.output << result.errors;
        return result.errors;
    }

    nlohmann::json json(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "--json");
        return nlohmann::json::parse(run(std::move(arguments)).output);
    }

    std::filesystem::path save(std::string_view name, std::string_view bytes) const {
        const auto file = folder.file(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        m_archives.remember(bytes);
        return file;
    }

    std::string load(std::string_view name) const {
        std::ifstream in(folder.file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    /// The names in an archive, which independent readers must find sound, in order.
    Names names(std::string_view archive) const {
        const auto verdict = verifyArchive(folder.file(archive));
        EXPECT_EQ(verdict.problems(), "");
        auto found = verdict.names();
        std::sort(found.begin(), found.end());
        return found;
    }

    /// What is left in the folder for temporary files.
    std::size_t leftovers() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(temporary.path()), {}));
    }

    std::string iri(const std::string& archive, const std::string& path) const {
        return "zip:" + folder.iri(archive).toUtf8() + "!/" + path;
    }

    TemporaryFolder folder;
    TemporaryFolder temporary;

private:
    mutable WrittenArchives m_archives;
};

/// plans.zip: b.txt, docs/a.txt, docs/sub/c.txt, empty/.
class ToolWithPlans : public Tool {
protected:
    void SetUp() override {
        Tool::SetUp();
        ArchiveBuilder builder;
        builder.add("docs/")
            .add("docs/a.txt", "text\n")
            .add("docs/sub/c.txt", "see\n")
            .add("empty/")
            .add("b.txt", "b");
        builder.last().modified = DosTime::of(2021, 12, 31, 23, 59, 58);
        save("plans.zip", builder.build());
    }
};

} // namespace kx::test
