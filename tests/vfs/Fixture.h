#pragma once

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Vfs.h>
#include <support/TemporaryFolder.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/archives/WrittenArchives.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>

namespace kx::test {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;

/// A local folder to work in. At the end of each test independent readers judge every archive in it, other
/// than those that the test saved itself.
class InFolder : public ::testing::Test {
protected:
    void TearDown() override {
        m_archives.addFolder(folder.path());
        EXPECT_EQ(m_archives.problems(), "");
    }

    std::filesystem::path save(std::string_view name, std::string_view bytes) const {
        const auto file = folder.file(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        m_archives.remember(bytes);
        return file;
    }

    StorageIRI inZip(std::string_view archive, std::u16string_view path) const {
        return StorageIRI::inContainer("zip", folder.iri(archive), path);
    }

    static std::string load(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    static std::string read(storage::vfs::Vfs& vfs, const StorageIRI& file) {
        return readFile(*vfs.mount(file).provider, file);
    }

    TemporaryFolder folder;

private:
    mutable WrittenArchives m_archives;
};

/// Runs `work` and returns the Exception that it throws; a test failure where it throws none.
template <typename Work>
foundation::storage::provider::Exception exceptionOf(Work&& work) {
    try {
        work();
    } catch (const foundation::storage::provider::Exception& failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {ErrorCode::InvalidArgument, StorageIRI()};
}

} // namespace kx::test
