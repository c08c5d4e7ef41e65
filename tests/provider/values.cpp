#include <foundation/storage/provider/ByteStreamDevice.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageItem.h>
#include <support/InMemoryProvider.h>
#include <support/contents.h>

#include <boost/iostreams/stream.hpp>
#include <gtest/gtest.h>

#include <set>

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

TEST(MoveOption, OnlyTheBitThatAllowsCopyingDoesNotReplace) {
    EXPECT_FALSE(replacesExisting(MoveOption::FailIfExists));
    EXPECT_FALSE(replacesExisting(MoveOption::AllowCopy));
    EXPECT_TRUE(replacesExisting(MoveOption::ReplaceExisting));
    EXPECT_TRUE(replacesExisting(MoveOption::ReplaceExistingAllowCopy));
    EXPECT_TRUE(replacesExisting(static_cast<MoveOption>(2)));
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
