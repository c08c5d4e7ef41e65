#pragma once

#include <foundation/core/SourceLocation.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

namespace provider = foundation::storage::provider;

/// What a provider may do one way or the other and IProvider::hasFeature does not tell.
struct ProviderTraits {
    /// A stream for writing that is destroyed without close() leaves the file as it was.
    bool keepsOldContentsOnDiscard = false;
    /// Listing a file, as if it were a folder, is NotFound; else a listing without entries.
    bool refusesToListFiles = true;
    /// Characters that no name can hold; making such an item is InvalidArgument.
    fl::i18n::ustring notInNames;
    /// A folder can be removed while a stream for writing is open on a new file in it; else that is Busy.
    bool removesFoldersOfOpenFiles = true;
    /// How many folders in one another the suite makes.
    std::size_t deepestFolder = 40;
    /// The number of bytes of what counts as a large file.
    std::size_t largeFile = 3'000'000;
};

/// A provider over a storage of its own, made anew for every test.
class ProviderUnderTest {
public:
    virtual ~ProviderUnderTest() = default;

    /// The provider; ask for it afresh after reopen() and makeReadOnly().
    virtual provider::IProvider& get() = 0;
    /// An existing folder that the test may use as it likes; empty for the conformance of writing, holding
    /// standardTree() for that of reading.
    virtual provider::StorageIRI root() = 0;
    virtual ProviderTraits traits() const { return {}; }

    /// Lets go of the provider and makes another one over the same storage. Without a storage below there is
    /// nothing to do.
    virtual void reopen() {}
    /// Makes the storage read-only. False where that is not possible.
    virtual bool makeReadOnly() { return false; }
    /// What is wrong with that which the provider has stored, as programs that know nothing of the provider
    /// see it; empty when nothing. Asked at the end of every test, when no stream is open any more.
    virtual std::string problemsOfTheStorage() { return {}; }
};

/// How to make one; the parameter of the suites.
using ProviderMaker = std::function<std::unique_ptr<ProviderUnderTest>()>;

/// An entry of the tree that the suite of reading expects.
struct TreeEntry {
    /// Relative to the root, parents first.
    fl::i18n::ustring path;
    provider::EntryKind kind;
    std::string bytes;
};
const std::vector<TreeEntry>& standardTree();
/// Makes the standard tree in a folder of a provider that can write.
void writeStandardTree(provider::IProvider& provider, const provider::StorageIRI& root);
/// A maker whose provider holds the standard tree and was reopened since it was written.
ProviderMaker withStandardTree(ProviderMaker maker);

/// The fixture that all suites share.
class ProviderConformance : public testing::TestWithParam<ProviderMaker> {
protected:
    using StorageIRI = provider::StorageIRI;
    using ErrorCode = provider::ErrorCode;
    using Options = provider::ByteStreamOpenOptions;
    using MoveOption = provider::MoveOption;
    using ustring = fl::i18n::ustring;
    using ustring_view = fl::i18n::ustring_view;
    using Names = std::vector<ustring>;

    ProviderConformance() : m_tested(GetParam()()) {}
    void TearDown() override { EXPECT_EQ(m_tested->problemsOfTheStorage(), ""); }

    ProviderUnderTest& tested() { return *m_tested; }
    provider::IProvider& storage() { return m_tested->get(); }
    /// The item at a path relative to the root.
    StorageIRI at(ustring_view path) { return m_tested->root().child(path); }

    void write(ustring_view path, std::string_view bytes, const Options& options = {});
    std::string read(ustring_view path);
    void makeFolder(ustring_view path) { storage().createFolder(at(path)); }
    Names names(ustring_view folder = u"");

    /// Runs `operation` and expects the provider's Exception with this code and, where given, this location.
    void expectError(ErrorCode code, const std::function<void()>& operation,
                     const std::optional<StorageIRI>& location = {},
                     foundation::core::SourceLocation place = foundation::core::SourceLocation::current());

private:
    std::unique_ptr<ProviderUnderTest> m_tested;
};

// The parts of the suite.
class ItemConformance : public ProviderConformance {};
class TreeConformance : public ProviderConformance {};
class MoveConformance : public ProviderConformance {};
class StreamConformance : public ProviderConformance {};
class ListingConformance : public ProviderConformance {};
class CopyConformance : public ProviderConformance {};
class TransactionConformance : public ProviderConformance {};
class PropertyConformance : public ProviderConformance {};
class ChangeEventConformance : public ProviderConformance {};
class ReadOnlyConformance : public ProviderConformance {};
class ConcurrencyConformance : public ProviderConformance {};
/// Over the standard tree, reading only.
class ReadingConformance : public ProviderConformance {};

} // namespace kx::test

/// Runs the suite of reading over a provider whose root holds the standard tree, which need not be writable.
#define KX_READING_CONFORMANCE(Name, maker)                                                                  \
    INSTANTIATE_TEST_SUITE_P(Name, ReadingConformance, testing::Values(kx::test::ProviderMaker(maker)))

/// Runs the whole suite over a provider whose root is empty and writable. Use it in namespace kx::test.
#define KX_PROVIDER_CONFORMANCE(Name, maker)                                                                 \
    INSTANTIATE_TEST_SUITE_P(Name, ItemConformance, testing::Values(kx::test::ProviderMaker(maker)));        \
    INSTANTIATE_TEST_SUITE_P(Name, TreeConformance, testing::Values(kx::test::ProviderMaker(maker)));        \
    INSTANTIATE_TEST_SUITE_P(Name, MoveConformance, testing::Values(kx::test::ProviderMaker(maker)));        \
    INSTANTIATE_TEST_SUITE_P(Name, StreamConformance, testing::Values(kx::test::ProviderMaker(maker)));      \
    INSTANTIATE_TEST_SUITE_P(Name, ListingConformance, testing::Values(kx::test::ProviderMaker(maker)));     \
    INSTANTIATE_TEST_SUITE_P(Name, CopyConformance, testing::Values(kx::test::ProviderMaker(maker)));        \
    INSTANTIATE_TEST_SUITE_P(Name, TransactionConformance, testing::Values(kx::test::ProviderMaker(maker))); \
    INSTANTIATE_TEST_SUITE_P(Name, PropertyConformance, testing::Values(kx::test::ProviderMaker(maker)));    \
    INSTANTIATE_TEST_SUITE_P(Name, ChangeEventConformance, testing::Values(kx::test::ProviderMaker(maker))); \
    INSTANTIATE_TEST_SUITE_P(Name, ReadOnlyConformance, testing::Values(kx::test::ProviderMaker(maker)));    \
    INSTANTIATE_TEST_SUITE_P(Name, ConcurrencyConformance, testing::Values(kx::test::ProviderMaker(maker))); \
    KX_READING_CONFORMANCE(Name, kx::test::withStandardTree(maker))
