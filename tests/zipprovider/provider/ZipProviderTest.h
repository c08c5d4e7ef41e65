#pragma once

#include "MountedZip.h"

#include <foundation/storage/provider/Exception.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>
#include <support/archives/ExpectedEntries.h>
#include <support/archives/IndependentReaders.h>
#include <support/archives/WrittenArchives.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

/// Sets an environment variable, and back.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::string& value);
    ~ScopedVariable();
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_before;
};

/// The clock stands still at 2022-03-04 05:06:08 UTC, for files too.
class ScopedTime {
public:
    ScopedTime();
    ~ScopedTime();
    ScopedTime(const ScopedTime&) = delete;
    ScopedTime& operator=(const ScopedTime&) = delete;
};

/// Whether `work` throws the host's exception with this code and this location.
testing::AssertionResult reports(foundation::storage::provider::ErrorCode code,
                                 const foundation::storage::provider::StorageIRI& location,
                                 const std::function<void()>& work);

/// Whether `work` throws a Failure whose message has `part` in it, and not the host's exception.
template <typename Failure>
testing::AssertionResult throwsUntranslated(std::string_view part, const std::function<void()>& work) {
    try {
        work();
    } catch (const foundation::storage::provider::Exception& error) {
        return testing::AssertionFailure() << "threw the host's exception: " << error.what();
    } catch (const Failure& error) {
        if (std::string_view(error.what()).find(part) == std::string_view::npos) {
            return testing::AssertionFailure() << "threw with another message: " << error.what();
        }
        return testing::AssertionSuccess();
    } catch (const std::exception& error) {
        return testing::AssertionFailure() << "threw another exception: " << error.what();
    }
    return testing::AssertionFailure() << "threw nothing";
}

/// What independent readers find wrong with an archive that ought to have exactly these entries; empty when
/// nothing.
std::string archiveProblems(const std::string& archive, const Contents& expected);
/// The entries in the order of the central directory, as an independent reader sees them; and their names.
std::vector<SeenEntry> seenEntries(const std::string& archive);
std::vector<std::string> storedNames(const std::string& archive);

/// A ZIP provider over a container in memory, with a temporary folder of its own, so that what stays behind
/// in it is seen. The container is an empty file, which is an empty archive. At the end of each test
/// independent readers judge every archive in either, other than those that the test put into the container
/// itself.
class ZipProviderTest : public testing::Test {
protected:
    using ErrorCode = foundation::storage::provider::ErrorCode;
    using MoveOption = foundation::storage::provider::MoveOption;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using StorageItem = foundation::storage::provider::StorageItem;

    ZipProviderTest();
    void TearDown() override;
    /// Puts another archive into the container and mounts it anew.
    void mount(const std::string& archive);
    /// An archive of these entries, mounted.
    void mount(const std::vector<std::pair<std::string, std::string>>& entries);
    /// The container's bytes.
    std::string archive();
    /// Replaces the container's bytes behind the provider's back.
    void replaceContainer(const std::string& bytes);
    /// Checks, with independent readers and with a provider that knows nothing of the one under test, that
    /// the container's archive has exactly these entries. Then that the mounted provider shows the same tree.
    void expectArchive(const Contents& expected);
    /// The files in the temporary folder: working files and temporary archives.
    std::vector<std::string> temporaryFiles() const;

    TemporaryFolder temporary;
    ScopedVariable temporaryVariable{"TMPDIR", temporary.path().string()};
    std::shared_ptr<InMemoryProvider> memory;
    StorageItem container;
    MountedZip zip;

private:
    WrittenArchives m_archives;
};

} // namespace kx::test
