#include <foundation/storage/provider/ByteStreamDevice.h>
#include <foundation/storage/provider/ChangeEvent.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageItem.h>
#include <support/InMemoryProvider.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/iostreams/stream.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <set>
#include <utility>

namespace kx::test {

namespace {

using namespace foundation::storage::provider;

TEST(ErrorCode, EveryCodeHasWordsOfItsOwn) {
    std::set<std::string_view> texts;
    for (std::uint32_t number = 0; number <= 10; ++number) {
        texts.insert(toText(static_cast<ErrorCode>(number)));
    }
    EXPECT_EQ(texts.size(), 11U);
    EXPECT_FALSE(texts.contains("unknown error"));
    EXPECT_EQ(toText(static_cast<ErrorCode>(11)), "unknown error");
}

TEST(Exception, TheMessageSaysWhatIsWrongWithWhich) {
    const auto iri = StorageIRI::parse("zip:file:///a.zip!/Größe 1");
    const Exception plain(ErrorCode::NotFound, iri);
    EXPECT_STREQ(plain.what(), "not found: zip:file:///a.zip!/Größe%201");
    EXPECT_EQ(plain.getErrorCode(), ErrorCode::NotFound);
    EXPECT_EQ(plain.getIRI(), iri);
    EXPECT_EQ(plain.getCause(), "");

    const Exception caused(ErrorCode::NoSpace, iri, "no space left on device");
    EXPECT_STREQ(caused.what(), "no space left: zip:file:///a.zip!/Größe%201: no space left on device");
    EXPECT_EQ(caused.getCause(), "no space left on device");
}

TEST(Exception, ACopyIsCaughtAsWhatWasThrown) {
    const auto iri = StorageIRI::parse("zip:file:///a.zip!/docs/a.txt");
    std::exception_ptr kept;
    try {
        throw Exception(ErrorCode::Busy, iri, "it is being saved");
    } catch (const Exception& failure) {
        kept = std::make_exception_ptr(failure);
    }
    try {
        std::rethrow_exception(kept);
    } catch (const std::runtime_error& caught) {
        EXPECT_STREQ(caught.what(), "busy: zip:file:///a.zip!/docs/a.txt: it is being saved");
    }
    Exception assigned(ErrorCode::NotFound, StorageIRI::parse("file:///b"));
    assigned = Exception(ErrorCode::Busy, iri, "it is being saved");
    EXPECT_EQ(assigned.getErrorCode(), ErrorCode::Busy);
    EXPECT_EQ(assigned.getIRI(), iri);
    EXPECT_EQ(assigned.getCause(), "it is being saved");
    EXPECT_STREQ(assigned.what(), "busy: zip:file:///a.zip!/docs/a.txt: it is being saved");
}

TEST(FolderEntry, EqualsOneOfTheSameNameAndKind) {
    const FolderEntry file(u"docs/a", EntryKind::File);
    EXPECT_EQ(file, FolderEntry(u"docs/a", EntryKind::File));
    EXPECT_NE(file, FolderEntry(u"docs/a", EntryKind::Folder));
    EXPECT_NE(file, FolderEntry(u"docs/A", EntryKind::File));
    EXPECT_FALSE(file.isFolder());
    EXPECT_TRUE(FolderEntry(u"docs", EntryKind::Folder).isFolder());
}

TEST(FolderEntry, IsTheSameWhereItIsCopiedOrMovedTo) {
    const FolderEntry folder(u"a name that is too long to be kept in place", EntryKind::Folder);
    FolderEntry copy = folder;
    EXPECT_EQ(copy, folder);
    FolderEntry other(u"b", EntryKind::File);
    other = std::move(copy);
    EXPECT_EQ(other, folder);
    EXPECT_EQ(other.getName(), u"a name that is too long to be kept in place");
}

TEST(FileAttributes, AreTheSameWhereTheyAreCopiedTo) {
    const auto time = boost::posix_time::time_from_string("2024-02-29 12:34:56");
    const FileAttributes known(7'000'000'000U, time, true);
    FileAttributes attributes(std::nullopt, boost::posix_time::ptime(), false);
    EXPECT_FALSE(attributes.getSize());
    EXPECT_TRUE(attributes.getLastModified().is_not_a_date_time());
    EXPECT_FALSE(attributes.isWritable());
    attributes = known;
    EXPECT_EQ(attributes.getSize(), 7'000'000'000U);
    EXPECT_EQ(attributes.getLastModified(), time);
    EXPECT_TRUE(attributes.isWritable());
}

TEST(FolderAttributes, AreTheSameWhereTheyAreCopiedTo) {
    const auto time = boost::posix_time::time_from_string("2024-02-29 12:34:56");
    const FolderAttributes known(time, true);
    FolderAttributes attributes(boost::posix_time::ptime(), false);
    EXPECT_TRUE(attributes.getLastModified().is_not_a_date_time());
    EXPECT_FALSE(attributes.isWritable());
    attributes = known;
    EXPECT_EQ(attributes.getLastModified(), time);
    EXPECT_TRUE(attributes.isWritable());
}

TEST(ByteStreamOpenOptions, EqualOnlyThoseThatAgreeInEveryWord) {
    const ByteStreamOpenOptions options;
    EXPECT_EQ(options, ByteStreamOpenOptions::overwrite());
    EXPECT_NE(options, ByteStreamOpenOptions::append());
    EXPECT_NE(ByteStreamOpenOptions::append(), ByteStreamOpenOptions::modify());
    auto other = options;
    EXPECT_EQ(other, options);
    other.access = StreamAccess::ReadWrite;
    EXPECT_NE(other, options);
    other = options;
    other.disposition = StreamDisposition::OpenExisting;
    EXPECT_NE(other, options);
    other = options;
    other.truncation = StreamTruncation::Keep;
    EXPECT_NE(other, options);
    other = options;
    other.positioning = StreamPositioning::Append;
    EXPECT_NE(other, options);
}

TEST(ChangeEvent, EqualsOneOfTheSameKindAndPlace) {
    const ChangeEvent event{ChangeKind::Modified, StorageIRI::parse("file:///a")};
    EXPECT_EQ(event, (ChangeEvent{ChangeKind::Modified, StorageIRI::parse("FILE:/%61")}));
    EXPECT_NE(event, (ChangeEvent{ChangeKind::Removed, StorageIRI::parse("file:///a")}));
    EXPECT_NE(event, (ChangeEvent{ChangeKind::Modified, StorageIRI::parse("file:///b")}));
}

TEST(MoveOption, OnlyTheBitThatAllowsCopyingDoesNotReplace) {
    EXPECT_FALSE(replacesExisting(MoveOption::FailIfExists));
    EXPECT_FALSE(replacesExisting(MoveOption::AllowCopy));
    EXPECT_TRUE(replacesExisting(MoveOption::ReplaceExisting));
    EXPECT_TRUE(replacesExisting(MoveOption::ReplaceExistingAllowCopy));
    EXPECT_TRUE(replacesExisting(static_cast<MoveOption>(2)));
}

TEST(ByteStream, WithoutABufferThereIsNothingToReadInto) {
    InMemoryProvider memory;
    writeFile(memory, memory.at(u"/a"), "old");
    const auto stream = memory.openStream(memory.at(u"/a"), ByteStreamOpenOptions::modify());
    EXPECT_THROW(stream->read(nullptr, 1), std::invalid_argument);
    EXPECT_THROW(stream->write(nullptr, 1), std::invalid_argument);
    EXPECT_EQ(readAll(*stream), "old");
}

TEST(StorageItem, AnItemIsItsFileInTheProvider) {
    const auto memory = std::make_shared<InMemoryProvider>();
    const StorageItem item(memory, memory->at(u"/a.zip"));
    EXPECT_FALSE(item.exists());
    EXPECT_EQ(memory->callCount(ProviderOperation::OpenStream), 0U);

    const auto out = item.openStream();
    writeAll(*out, "bytes");
    out->close();
    EXPECT_TRUE(item.exists());
    EXPECT_EQ(item.getFileAttributes().getSize(), 5U);
    EXPECT_TRUE(item.getFileAttributes().isWritable());
    memory->setReadOnly(true);
    EXPECT_FALSE(item.getFileAttributes().isWritable());
    EXPECT_EQ(readAll(*item.openReadOnlyStream()), "bytes");
    EXPECT_EQ(item.getLocation(), memory->at(u"/a.zip"));
    EXPECT_EQ(item.getProvider(), memory);
}

TEST(StorageItem, CopiesKeepTheProviderAlive) {
    auto memory = std::make_shared<InMemoryProvider>();
    memory->createFile(memory->at(u"/a"));
    auto item = std::make_unique<StorageItem>(memory, memory->at(u"/a"));
    const StorageItem copy = *item;
    item.reset();
    memory.reset();
    EXPECT_TRUE(copy.exists());
}

TEST(StorageItem, AnItemNeedsAProvider) {
    EXPECT_THROW(StorageItem(nullptr, StorageIRI::parse("file:///a")), std::invalid_argument);
}

class EchoFactory final : public ContainerProviderFactory {
    std::shared_ptr<IProvider> doCreateProvider(const StorageItem& container) override {
        return container.getProvider();
    }
    StorageIRI doGetContainerLocation(const StorageItem& container) override {
        return container.getLocation();
    }
};

TEST(ContainerProviderFactory, TheOperationsReachTheFactory) {
    const auto memory = std::make_shared<InMemoryProvider>();
    const StorageItem item(memory, memory->at(u"/a"));
    EchoFactory factory;
    EXPECT_EQ(factory.createProvider(item), memory);
    EXPECT_EQ(factory.getContainerLocation(item), item.getLocation());
}

TEST(ByteStreamDevice, CopiesShareTheStreamAndItsPosition) {
    InMemoryProvider memory;
    writeFile(memory, memory.at(u"/a"), "0123456789");
    ByteStreamDevice device(memory.openReadStream(memory.at(u"/a")));
    ByteStreamDevice copy = device;
    char bytes[4];
    EXPECT_EQ(device.read(bytes, 4), 4);
    EXPECT_EQ(copy.read(bytes, 4), 4);
    EXPECT_EQ(std::string(bytes, 4), "4567");
    EXPECT_EQ(boost::iostreams::position_to_offset(copy.seek(-1, std::ios_base::cur)), 7);
    EXPECT_EQ(device.read(bytes, 4), 3);
    EXPECT_EQ(device.read(bytes, 4), -1);
    EXPECT_EQ(device.read(bytes, 0), 0);
}

TEST(ByteStreamDevice, PositionsBeyondFourGibibytesArrive) {
    InMemoryProvider memory;
    writeFile(memory, memory.at(u"/a"), "x");
    boost::iostreams::stream<ByteStreamDevice> in(ByteStreamDevice(memory.openReadStream(memory.at(u"/a"))));
    in.seekg(6'000'000'000, std::ios_base::beg);
    EXPECT_EQ(static_cast<std::streamoff>(in.tellg()), 6'000'000'000);
}

TEST(ByteStreamDevice, ClosingTheBoostStreamDeliversTheBytes) {
    InMemoryProvider memory;
    const auto file = memory.at(u"/a");
    boost::iostreams::stream<ByteStreamDevice> out(
        ByteStreamDevice(memory.openStream(file, ByteStreamOpenOptions::overwrite())));
    out << "buffered";
    EXPECT_EQ(readFile(memory, file), "");
    out.close();
    EXPECT_EQ(readFile(memory, file), "buffered");
}

} // namespace

} // namespace kx::test
