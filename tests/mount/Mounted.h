#pragma once

#include <kxvfs/Tool.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace kx::test {

/// An open file of the system, closed at the end of the block unless that was done before.
class Descriptor {
public:
    Descriptor(const std::filesystem::path& file, int flags, unsigned mode = 0644)
        : m_number(open(file.c_str(), flags | O_CLOEXEC, mode)) {}
    ~Descriptor() {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_number; }
    bool isOpen() const { return m_number >= 0; }
    /// The error of close(), 0 without one.
    int close() {
        const int result = ::close(m_number);
        m_number = -1;
        return result == 0 ? 0 : errno;
    }
    bool write(std::string_view text) const {
        return ::write(m_number, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

private:
    int m_number;
};

/// An archive mounted over a folder by the tool. Whatever a test leaves mounted is unmounted at its end.
class Mounted : public Tool {
protected:
    void SetUp() override {
        if (access("/dev/fuse", R_OK | W_OK) != 0)
            GTEST_SKIP() << "/dev/fuse cannot be used here: " << std::strerror(errno);
        Tool::SetUp();
        std::filesystem::create_directories(mountPoint());
        std::filesystem::create_directories(folder.file("state"));
    }

    void TearDown() override {
        if (isMounted())
            runMountTool({"umount", mountPoint()});
        if (isMounted())
            runProcess({"umount", "-l", mountPoint()});
    }

    std::string mountPoint() const { return folder.file("mnt").string(); }
    std::filesystem::path in(std::string_view name) const { return folder.file("mnt") / name; }

    bool isMounted() const {
        const auto mounts = runProcess({"cat", "/proc/self/mounts"}).output;
        return mounts.find(" " + mountPoint() + " ") != std::string::npos;
    }

    ProcessResult runMountTool(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), binary());
        return runProcess(arguments, mountOptions());
    }

    ProcessOptions mountOptions() const {
        auto with = options();
        with.environment.emplace_back("XDG_RUNTIME_DIR", folder.file("state").string());
        with.environment.emplace_back("XDG_STATE_HOME", folder.file("state").string());
        with.timeout = std::chrono::seconds(120);
        return with;
    }

    void mount(const std::string& archive = "plans.zip", const std::string& mountOptionList = {}) {
        std::vector<std::string> words{"mount", folder.file(archive).string(), mountPoint()};
        if (!mountOptionList.empty())
            words.insert(words.begin() + 1, {"-o", mountOptionList});
        const auto result = runMountTool(words);
        // Nothing that a test does would make sense.
        if (result.exitCode != 0 || !isMounted())
            throw std::runtime_error("cannot mount: " + result.errors);
    }

    /// A new empty archive, mounted.
    void mountEmpty(const std::string& mountOptionList = {}) {
        ASSERT_EQ(runMountTool({"create", folder.file("plans.zip").string()}).exitCode, 0);
        mount("plans.zip", mountOptionList);
    }

    void unmount() {
        const auto result = runMountTool({"umount", mountPoint()});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        EXPECT_FALSE(isMounted());
    }

    /// Runs a shell script in the mount; it must succeed.
    std::string shell(const std::string& script,
                      std::chrono::seconds timeout = std::chrono::seconds(300)) const {
        auto with = mountOptions();
        with.directory = mountPoint();
        with.timeout = timeout;
        with.environment.emplace_back("HOME", folder.file("state").string());
        const auto result = runProcess({"bash", "-c", "set -e\n" + script}, with);
        EXPECT_EQ(result.exitCode, 0) << result.output << result.errors;
        return result.output;
    }

    static void put(const std::filesystem::path& file, std::string_view text) {
        Descriptor out(file, O_WRONLY | O_CREAT | O_TRUNC);
        ASSERT_TRUE(out.isOpen()) << file << ": " << std::strerror(errno);
        ASSERT_TRUE(out.write(text)) << std::strerror(errno);
        ASSERT_EQ(out.close(), 0);
    }

    static std::string get(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    /// The contents of an entry, as the archive on disk has it at this moment.
    std::string stored(const std::string& entry, const std::string& archive = "plans.zip") const {
        return runProcess({"unzip", "-p", folder.file(archive).string(), entry}).output;
    }

    /// The mount's process and condition, as `mount --list` shows them.
    nlohmann::json listing() const {
        return nlohmann::json::parse(runMountTool({"--json", "mount", "--list"}).output);
    }

    /// Waits until the mount has saved everything; fails after two minutes.
    void waitUntilSaved() const {
        for (int i = 0; i < 1200; ++i) {
            const auto mounts = listing();
            if (!mounts.empty() && mounts[0]["unsavedChanges"] == 0)
                return;
            usleep(100'000);
        }
        ADD_FAILURE() << listing().dump();
    }
};

/// plans.zip: b.txt, docs/a.txt, docs/sub/c.txt, empty/ — docs/sub only through its file.
class MountedPlans : public Mounted {
protected:
    void SetUp() override {
        Mounted::SetUp();
        if (IsSkipped())
            return;
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
