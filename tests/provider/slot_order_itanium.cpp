#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/ErrorCode.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>
#include <foundation/storage/provider/IProvider.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace foundation::storage::provider;

/// The place in the virtual table of the function that a pointer to a virtual member function calls. In the
/// Itanium C++ ABI such a pointer begins with the place's offset in bytes; on x86 the lowest bit is set, on
/// ARM it is a bit of the second word.
template <typename Function>
std::size_t placeOf(Function function) {
    std::uintptr_t word = 0;
    std::memcpy(&word, &function, sizeof word);
    return static_cast<std::size_t>(word & ~std::uintptr_t{1}) / sizeof(void*);
}

/// The destructor is slot 0 and takes the first two places of the table; slot n is place n + 1.
template <typename Function>
std::size_t slotOf(Function function) {
    return placeOf(function) - 1;
}

struct ProviderProbe : IProvider {
    static std::vector<std::size_t> slots() {
        return {slotOf(&ProviderProbe::doCreateFile),
                slotOf(&ProviderProbe::doCreateFolder),
                slotOf(&ProviderProbe::doCreateFolderRecursive),
                slotOf(&ProviderProbe::doIsFile),
                slotOf(&ProviderProbe::doIsFolder),
                slotOf(&ProviderProbe::doRemoveFile),
                slotOf(&ProviderProbe::doMoveFile),
                slotOf(&ProviderProbe::doRemoveFolder),
                slotOf(&ProviderProbe::doRemoveFolderRecursively),
                slotOf(&ProviderProbe::doMoveFolder),
                slotOf(&ProviderProbe::doGetFileAttributes),
                slotOf(&ProviderProbe::doGetFolderAttributes),
                slotOf(&ProviderProbe::doOpenStream),
                slotOf(&ProviderProbe::doOpenReadStream),
                slotOf(&ProviderProbe::doOpenTransactionalStream),
                slotOf(&ProviderProbe::doOpenTransactionalStreamAtScratchLocation),
                slotOf(&ProviderProbe::doListAll),
                slotOf(&ProviderProbe::doListAllWildcards),
                slotOf(&ProviderProbe::doListFiles),
                slotOf(&ProviderProbe::doListFilesWildcards),
                slotOf(&ProviderProbe::doListFolders),
                slotOf(&ProviderProbe::doListFoldersWildcards),
                slotOf(&ProviderProbe::doListAllNamesOnly),
                slotOf(&ProviderProbe::doListAllNamesOnlyWildcards),
                slotOf(&ProviderProbe::doListFoldersNamesOnly),
                slotOf(&ProviderProbe::doListFoldersNamesOnlyWildcards),
                slotOf(&ProviderProbe::doListFilesNamesOnly),
                slotOf(&ProviderProbe::doListFilesNamesOnlyWildcards),
                slotOf(&ProviderProbe::doListAllRecursive),
                slotOf(&ProviderProbe::doListAllRecursiveWildcards),
                slotOf(&ProviderProbe::doListAllRecursiveNamesOnly),
                slotOf(&ProviderProbe::doListAllRecursiveNamesOnlyWildcards),
                slotOf(&ProviderProbe::doCopyFile),
                slotOf(&ProviderProbe::doCopyFileAtomic),
                slotOf(&ProviderProbe::doSetLastModified),
                slotOf(&ProviderProbe::doSetWritable),
                slotOf(&ProviderProbe::doPublishFolderEventsFor),
                slotOf(&ProviderProbe::doPublishFileEventsFor),
                slotOf(&ProviderProbe::doStopPublishingEventsFor),
                slotOf(&ProviderProbe::doStartChangePollingMechanism),
                slotOf(&ProviderProbe::doStopChangePollingMechanism),
                slotOf(&ProviderProbe::doHasFeature),
                slotOf(&ProviderProbe::doGetPathComparator),
                slotOf(&ProviderProbe::doGetCanonicalLocation),
                slotOf(&ProviderProbe::doGetFilenameSensitivity),
                slotOf(&ProviderProbe::doShutdown),
                slotOf(&ProviderProbe::doExists),
                slotOf(&ProviderProbe::doExistsExtended),
                slotOf(&ProviderProbe::doGetExtendedAttributes),
                slotOf(&ProviderProbe::doGetProviderStorageInfo),
                slotOf(&ProviderProbe::doTruncateToSize),
                slotOf(&ProviderProbe::doGetProviderCacheUsage)};
    }
};

struct StreamProbe : ByteStream {
    static std::vector<std::size_t> slots() {
        return {slotOf(&StreamProbe::doRead), slotOf(&StreamProbe::doWrite), slotOf(&StreamProbe::doSeek),
                slotOf(&StreamProbe::doClose)};
    }
};

struct FactoryProbe : ContainerProviderFactory {
    static std::vector<std::size_t> slots() {
        return {slotOf(&FactoryProbe::doCreateProvider), slotOf(&FactoryProbe::doGetContainerLocation)};
    }
};

TEST(BinaryInterface, AProviderHasItsFiftyThreeSlotsInTheBindingOrder) {
    const auto slots = ProviderProbe::slots();
    ASSERT_EQ(slots.size(), 52U);
    for (std::size_t slot = 1; slot <= slots.size(); ++slot) {
        EXPECT_EQ(slots[slot - 1], slot);
    }
}

TEST(BinaryInterface, AStreamHasItsDestructorThenItsFourOperations) {
    EXPECT_EQ(StreamProbe::slots(), (std::vector<std::size_t>{1, 2, 3, 4}));
}

TEST(BinaryInterface, AFactoryHasItsDestructorThenItsTwoOperations) {
    EXPECT_EQ(FactoryProbe::slots(), (std::vector<std::size_t>{1, 2}));
}

TEST(BinaryInterface, AnIteratorHasItsOperationsBeforeItsDestructor) {
    EXPECT_EQ(placeOf(&IFolderEntryIterator::current), 0U);
    EXPECT_EQ(placeOf(&IFolderEntryIterator::hasNext), 1U);
    EXPECT_EQ(placeOf(&IFolderEntryIterator::next), 2U);
    EXPECT_EQ(placeOf(&IFolderEntryIterator::clone), 3U);
}

TEST(BinaryInterface, TheNumbersOfTheEnumerationsAreFixed) {
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::FolderNotEmpty), 0U);
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::ContainerUnreadable), 1U);
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::NotWritable), 2U);
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::AlreadyExists), 3U);
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::NotFound), 4U);
    EXPECT_EQ(static_cast<unsigned>(ErrorCode::LocalFileSystem), 9U);
    EXPECT_EQ(static_cast<unsigned>(StreamAccess::ReadWrite), 1U);
    EXPECT_EQ(static_cast<unsigned>(StreamDisposition::OpenExisting), 1U);
    EXPECT_EQ(static_cast<unsigned>(StreamTruncation::Truncate), 0U);
    EXPECT_EQ(static_cast<unsigned>(StreamPositioning::Append), 0U);
    EXPECT_EQ(sizeof(ByteStreamOpenOptions), 16U);
    EXPECT_EQ(static_cast<unsigned>(MoveOption::AllowCopy), 4U);
}

} // namespace
