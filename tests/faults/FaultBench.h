#pragma once

#include "InjectedFaults.h"
#include "Scenario.h"

#include <storage/fileprovider/LocalFileProvider.h>
#include <support/TemporaryFolder.h>
#include <zipprovider/provider/MountedZip.h>
#include <zipprovider/provider/ZipProviderTest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kx::test {

/// The folders and providers of one run of a scenario, and what must hold after it.
class FaultBench {
public:
    explicit FaultBench(const Scenario& scenario);

    /// Runs the scenario once under a plan and checks everything that must hold afterwards. The problems
    /// found are empty when all is well.
    std::string run(const InjectedFaults::Plan& plan);

    std::uint64_t countOf() const { return m_count; }
    std::uint64_t failures() const { return m_failures; }
    /// Whether the operation reported a failure in the last run.
    bool reported() const { return m_reported; }

private:
    using StorageItem = foundation::storage::provider::StorageItem;
    class FileSystem;

    void reset();
    void putArchive();
    void interruptSave();
    bool savesUntil(std::uint64_t call);
    StorageItem container() const;
    Streams begin(MountedZip& zip);
    bool isHeld() const;
    std::string act(MountedZip& zip, const InjectedFaults::Plan& plan);
    const Contents& treeBefore() const;
    void noteUnremovable(const InjectedFaults::Plan& plan);
    std::string archiveProblemsAfterActing() const;
    static std::string close(const Streams& streams);
    /// What the failure of an operation has to tell.
    std::string messageProblems(const std::string& message, const InjectedFaults::Plan& plan) const;
    std::string repeat(MountedZip& zip);
    std::string archiveFileProblems(const std::vector<Contents>& allowed) const;
    Contents treeOfArchive() const;
    std::vector<std::filesystem::path> workingFiles() const;
    std::string leftoverProblems() const;

    const Scenario& m_scenario;
    const TemporaryFolder m_folder;
    const TemporaryFolder m_state;
    const TemporaryFolder m_temporary;
    const ScopedVariable m_variable{"TMPDIR", m_temporary.path().string()};
    const ScopedTime m_time;
    const std::shared_ptr<FileSystem> m_fileSystem;
    const std::shared_ptr<storage::fileprovider::LocalFileProvider> m_files;
    std::set<std::filesystem::path> m_unremovable;
    /// The call from which on all fail to interrupt the save.
    std::uint64_t m_interruption = 1;
    std::uint64_t m_count = 0;
    std::uint64_t m_failures = 0;
    bool m_reported = false;
};

} // namespace kx::test
