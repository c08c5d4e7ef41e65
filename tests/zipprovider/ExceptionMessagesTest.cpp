#include <storage/zipprovider/src/EntryExistsException.h>
#include <storage/zipprovider/src/EntryNotFoundException.h>
#include <storage/zipprovider/src/FolderNotEmptyException.h>
#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/WorkingEntryOpenException.h>

#include <foundation/core/except/throwInternal.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

using namespace storage::zipprovider;

TEST(Exceptions, OfTheProviderSayWhatHappenedToWhichEntryWordForWord) {
    EXPECT_STREQ(EntryExistsException(ZipEntryPath(u"/a/b")).what(), "Entry /a/b already exists");
    EXPECT_STREQ(EntryNotFoundException(ZipEntryPath(u"/a/b")).what(), "Entry /a/b could not be found");
    EXPECT_STREQ(FolderNotEmptyException(ZipEntryPath(u"/a/b")).what(), "Folder /a/b is not empty");
    EXPECT_STREQ(WorkingEntryOpenException(u"/tmp/x.cache").what(),
                 "Working entry /tmp/x.cache could not be opened");
    EXPECT_STREQ(
        MiniZipException(u"Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen").what(),
        "Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen");
}

TEST(Exceptions, NameARelativePathWithoutASlashInFront) {
    EXPECT_STREQ(EntryNotFoundException(ZipEntryPath(u"a/b/")).what(), "Entry a/b could not be found");
    EXPECT_STREQ(EntryNotFoundException(ZipEntryPath(u"/")).what(), "Entry / could not be found");
    EXPECT_STREQ(EntryNotFoundException(ZipEntryPath(u"")).what(), "Entry  could not be found");
}

TEST(Exceptions, GiveTheNarrowFormOfTheirWideMessage) {
    const ZipEntryPath path(u"/\u00FC/\U0001F600");
    const std::string narrow = "/\xC3\xBC/\xF0\x9F\x98\x80";
    EXPECT_EQ(EntryExistsException(path).what(), "Entry " + narrow + " already exists");
    EXPECT_EQ(EntryNotFoundException(path).what(), "Entry " + narrow + " could not be found");
    EXPECT_EQ(FolderNotEmptyException(path).what(), "Folder " + narrow + " is not empty");
    EXPECT_EQ(WorkingEntryOpenException(path.toString()).what(),
              "Working entry " + narrow + " could not be opened");
    EXPECT_EQ(MiniZipException(path.toString()).what(), narrow);
}

TEST(Exceptions, WithAnUnpairedSurrogateInTheirPathStillHaveAMessage) {
    EXPECT_STREQ(EntryNotFoundException(ZipEntryPath(std::u16string(u"/\xD800"))).what(),
                 "Entry /\xEF\xBF\xBD could not be found");
}

template <typename T>
class ThrownException : public testing::Test {};

template <typename T>
T make() {
    if constexpr (std::is_constructible_v<T, ZipEntryPath>) {
        return T(ZipEntryPath(u"/entry"));
    } else {
        return T(u"message");
    }
}

using Types = testing::Types<EntryExistsException, EntryNotFoundException, FolderNotEmptyException,
                             MiniZipException, WorkingEntryOpenException>;
TYPED_TEST_SUITE(ThrownException, Types);

TYPED_TEST(ThrownException, IsARuntimeErrorOfItsOwnTypeAndAnInternalExceptionOfThePlatform) {
    using foundation::core::except::IInternalException;
    static_assert(std::is_base_of_v<std::runtime_error, TypeParam>);
    const std::string text = make<TypeParam>().what();

    try {
        foundation::core::except::throwInternal(make<TypeParam>());
    } catch (TypeParam& error) {
        EXPECT_EQ(error.what(), text);
        const auto* internal = dynamic_cast<const IInternalException*>(&error);
        ASSERT_NE(internal, nullptr);
        EXPECT_EQ(internal->getText(), text);
        EXPECT_TRUE(
            std::string_view(internal->getSourceLocation().file()).ends_with("ExceptionMessagesTest.cpp"));
        using Wrapper = foundation::core::except::detail::AnonymousInternalException<TypeParam>;
        using Base = foundation::core::except::Exception<IInternalException, TypeParam>;
        EXPECT_NE(dynamic_cast<const Wrapper*>(&error), nullptr);
        EXPECT_NE(dynamic_cast<const Base*>(&error), nullptr);
    }
    EXPECT_THROW(foundation::core::except::throwInternal(make<TypeParam>()), IInternalException);
    EXPECT_THROW(foundation::core::except::throwInternal(make<TypeParam>()), std::runtime_error);
}

} // namespace
