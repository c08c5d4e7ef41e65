#include <support/TemporaryFolder.h>
#include <support/contents.h>

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/FileLock.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/fileprovider/Recovery.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <windows.h>

namespace {

using namespace kx::test;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using storage::fileprovider::FileLock;
using storage::fileprovider::LocalFileProvider;
using testing::ElementsAre;
using testing::IsEmpty;

class WindowsFiles : public testing::Test {
protected:
    IProvider& files() { return *m_files; }
    std::filesystem::path path(const std::u16string& name) const { return m_folder.path() / name; }
    StorageIRI at(const std::u16string& name) const { return m_folder.iri().child(name); }

    void save(const std::u16string& name, std::string_view bytes) { writeFile(files(), at(name), bytes); }

    std::string bytesOf(const std::u16string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    /// Opens the file as another program does that shares it with nobody who would remove it.
    HANDLE openElsewhere(const std::u16string& name) const {
        return ::CreateFileW(path(name).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    template <typename Action>
    static ErrorCode codeOf(Action action) {
        try {
            action();
        } catch (const Exception& failure) {
            return failure.getErrorCode();
        }
        ADD_FAILURE() << "nothing was thrown";
        return {};
    }

    const TemporaryFolder m_folder;

private:
    const std::shared_ptr<IProvider> m_files = LocalFileProvider::create();
};

TEST_F(WindowsFiles, NamesInEveryScriptAreWrittenReadAndListed) {
    const std::vector<std::u16string> names = {u"umlaut-äöü.txt", u"кириллица.txt", u"日本語.txt",
                                               u"emoji-😀.txt"};
    for (const auto& name : names) {
        save(name, "text");
        EXPECT_EQ(bytesOf(name), "text");
        EXPECT_EQ(readFile(files(), at(name)), "text");
    }
    EXPECT_THAT(files().listAllNamesOnly(m_folder.iri()), testing::UnorderedElementsAreArray(names));
}

TEST_F(WindowsFiles, AFileThatIsOpenElsewhereIsNotReplacedAndKeepsItsContents) {
    save(u"plans.txt", "old");
    auto stream = files().openStream(at(u"plans.txt"), ByteStreamOpenOptions::overwrite());
    writeAll(*stream, "new");
    const HANDLE other = openElsewhere(u"plans.txt");
    EXPECT_EQ(codeOf([&] { stream->close(); }), ErrorCode::Busy);
    ::CloseHandle(other);
    EXPECT_EQ(bytesOf(u"plans.txt"), "old");
    stream.reset();
    EXPECT_THAT(files().listAllNamesOnly(m_folder.iri()), ElementsAre(u"plans.txt"));
}

TEST_F(WindowsFiles, AFileThatIsBeingReadThroughTheProviderIsReplaced) {
    save(u"plans.txt", "old");
    const auto reader = files().openReadStream(at(u"plans.txt"));
    save(u"plans.txt", "new");
    EXPECT_EQ(bytesOf(u"plans.txt"), "new");
    EXPECT_EQ(readAll(*reader), "old");
}

TEST_F(WindowsFiles, PathsLongerThanTheSystemsOldLimitAreReached) {
    StorageIRI folder = m_folder.iri();
    for (int depth = 0; depth < 20; ++depth) {
        folder = folder.child(std::u16string(40, u'x'));
        files().createFolder(folder);
    }
    writeFile(files(), folder.child(u"leaf.txt"), "deep");
    EXPECT_EQ(readFile(files(), folder.child(u"leaf.txt")), "deep");
    files().removeFolderRecursively(m_folder.iri().child(std::u16string(40, u'x')));
    EXPECT_THAT(files().listAllNamesOnly(m_folder.iri()), IsEmpty());
}

TEST_F(WindowsFiles, NamesThatNoFileCanHaveAreNotThereAndCannotBeMade) {
    for (const std::u16string name : {u"a:b", u"a?b", u"a*b", u"a|b", u"a\\b", u"a\"b", u"a\u0001b"}) {
        EXPECT_FALSE(files().isFile(at(name)));
        EXPECT_FALSE(files().isFolder(at(name)));
        EXPECT_EQ(codeOf([&] { files().createFile(at(name)); }), ErrorCode::InvalidArgument);
    }
}

TEST_F(WindowsFiles, ALetterCaseThatDiffersLeadsToTheSameFile) {
    save(u"Plans.TXT", "text");
    EXPECT_EQ(readFile(files(), at(u"plans.txt")), "text");
    EXPECT_EQ(files().getCanonicalLocation(at(u"PLANS.txt")), files().getCanonicalLocation(at(u"plans.TXT")));
}

TEST_F(WindowsFiles, TheRootIsTheFolderOfAllDrives) {
    const auto root = StorageIRI::fromLocalPath(u"/");
    EXPECT_TRUE(files().isFolder(root));
    EXPECT_THAT(files().listAllNamesOnly(root), testing::Contains(u"C:"));
    EXPECT_TRUE(files().isFolder(root.child(u"C:")));
    EXPECT_EQ(codeOf([&] { files().removeFolder(root.child(u"C:")); }), ErrorCode::AccessDenied);
    EXPECT_EQ(codeOf([&] { files().removeFolderRecursively(root.child(u"C:")); }), ErrorCode::AccessDenied);
}

TEST_F(WindowsFiles, AFileMayStandInTheTopFolderOfADrive) {
    const auto file = StorageIRI::fromLocalPath(u"/C:/" + m_folder.path().filename().u16string());
    writeFile(files(), file, "text");
    EXPECT_EQ(readFile(files(), file), "text");
    files().removeFile(file);
    EXPECT_FALSE(files().isFile(file));
}

TEST_F(WindowsFiles, AFileOfSeveralHardLinksStaysOneFile) {
    save(u"one.txt", "old");
    ASSERT_NE(::CreateHardLinkW(path(u"two.txt").c_str(), path(u"one.txt").c_str(), nullptr), 0);
    save(u"one.txt", "new");
    EXPECT_EQ(bytesOf(u"two.txt"), "new");
    EXPECT_THAT(files().listAllNamesOnly(m_folder.iri()), ElementsAre(u"one.txt", u"two.txt"));
}

TEST_F(WindowsFiles, AReadOnlyFileIsNotWritable) {
    save(u"plans.txt", "old");
    files().setWritable(at(u"plans.txt"), false);
    EXPECT_FALSE(files().getFileAttributes(at(u"plans.txt")).isWritable());
    EXPECT_EQ(codeOf([&] { save(u"plans.txt", "new"); }), ErrorCode::NotWritable);
    files().setWritable(at(u"plans.txt"), true);
    EXPECT_EQ(bytesOf(u"plans.txt"), "old");
}

TEST_F(WindowsFiles, TheStagingFileOfAProcessThatIsGoneIsRemoved) {
    save(u"plans.txt", "old");
    std::ofstream(path(u".plans.txt.kxvfs-new0"), std::ios::binary) << "half";
    const auto report = storage::fileprovider::recoverFile(at(u"plans.txt"));
    EXPECT_EQ(report.outcome, storage::fileprovider::RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_FALSE(std::filesystem::exists(path(u".plans.txt.kxvfs-new0")));
    EXPECT_EQ(bytesOf(u"plans.txt"), "old");
}

TEST_F(WindowsFiles, AFileThatIsMissingSinceItsReplacingWasInterruptedIsPutInPlace) {
    save(u"plans.txt", "old");
    std::ofstream(path(u".plans.txt.kxvfs-journal0"), std::ios::binary) << "new";
    std::filesystem::remove(path(u"plans.txt"));
    EXPECT_TRUE(files().isFile(at(u"plans.txt")));
    EXPECT_EQ(readFile(files(), at(u"plans.txt")), "new");
    EXPECT_THAT(files().listAllNamesOnly(m_folder.iri()), ElementsAre(u"plans.txt"));
    EXPECT_FALSE(std::filesystem::exists(path(u".plans.txt.kxvfs-journal0")));
}

TEST_F(WindowsFiles, ContentsThatWereToReplaceAFileThatStandsAreRemoved) {
    save(u"plans.txt", "old");
    std::ofstream(path(u".plans.txt.kxvfs-journal0"), std::ios::binary) << "new";
    const auto report = storage::fileprovider::recoverFile(at(u"plans.txt"));
    EXPECT_EQ(report.outcome, storage::fileprovider::RecoveryOutcome::DiscardedUnfinishedSave);
    EXPECT_EQ(bytesOf(u"plans.txt"), "old");
    EXPECT_FALSE(std::filesystem::exists(path(u".plans.txt.kxvfs-journal0")));
}

TEST_F(WindowsFiles, AFileThatIsReplacedIsThereForItsReadersAtEveryMoment) {
    save(u"plans.txt", "0");
    std::atomic<bool> done = false;
    std::atomic<int> reads = 0;
    std::jthread reader([&] {
        const auto others = LocalFileProvider::create();
        for (; !done; ++reads) {
            EXPECT_NO_THROW(EXPECT_EQ(readFile(*others, at(u"plans.txt")), "0"));
        }
    });
    for (int i = 0; i < 20; ++i) {
        save(u"plans.txt", "0");
    }
    done = true;
    reader.join();
    EXPECT_GT(reads, 0);
}

TEST_F(WindowsFiles, ThreadsThatSaveOneFileAtOnceAllSucceed) {
    save(u"plans.txt", "0");
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 4; ++k) {
                EXPECT_NO_THROW(save(u"plans.txt", "0"));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(bytesOf(u"plans.txt"), "0");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.path()), {}), 1);
}

TEST_F(WindowsFiles, NamesThatEndInABlankOrADotAreKept) {
    for (const std::u16string name : {u" blank ", u"dot.", u"dots . ."}) {
        files().createFolder(at(name));
        writeFile(files(), at(name).child(name), "text");
        EXPECT_EQ(readFile(files(), at(name).child(name)), "text");
        EXPECT_THAT(files().listAllNamesOnly(at(name)), ElementsAre(name));
    }
    EXPECT_EQ(files().listAllNamesOnly(m_folder.iri()).size(), 3U);
}

TEST_F(WindowsFiles, ALockIsHeldByOneAndPassedOnWhenTheFileIsReplaced) {
    save(u"plans.txt", "old");
    FileLock lock = FileLock::tryAcquire(at(u"plans.txt"));
    ASSERT_TRUE(lock.isHeld());
    EXPECT_FALSE(FileLock::tryAcquire(at(u"plans.txt")).isHeld());
    save(u"plans.txt", "new");
    EXPECT_FALSE(FileLock::tryAcquire(at(u"plans.txt")).isHeld());
    lock.release();
    EXPECT_TRUE(FileLock::tryAcquire(at(u"plans.txt")).isHeld());
    EXPECT_EQ(bytesOf(u"plans.txt"), "new");
}

} // namespace
