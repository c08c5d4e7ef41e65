#include "ProviderConformance.h"

#include <support/contents.h>

#include <utility>

namespace kx::test {

using provider::EntryKind;

const std::vector<TreeEntry>& standardTree() {
    static const std::vector<TreeEntry> tree{
        {u"docs", EntryKind::Folder, {}},
        {u"docs/deeper", EntryKind::Folder, {}},
        {u"docs/deeper/leaf.txt", EntryKind::File, "leaf"},
        {u"docs/guide.txt", EntryKind::File, "first line\nsecond line\n"},
        {u"docs/guide2.txt", EntryKind::File, "another"},
        {u"docs/image.bin", EntryKind::File, randomBytes(200'000, 7)},
        {u"empty.txt", EntryKind::File, {}},
        {u"Größe 100%.txt", EntryKind::File, "bytes"},
        {u"zeros.bin", EntryKind::File, std::string(100'000, '\0')},
    };
    return tree;
}

void writeStandardTree(provider::IProvider& provider, const provider::StorageIRI& root) {
    for (const auto& entry : standardTree()) {
        if (entry.kind == EntryKind::Folder) {
            provider.createFolder(root.child(entry.path));
        } else {
            writeFile(provider, root.child(entry.path), entry.bytes);
        }
    }
}

ProviderMaker withStandardTree(ProviderMaker maker) {
    return [maker = std::move(maker)] {
        auto tested = maker();
        writeStandardTree(tested->get(), tested->root());
        tested->reopen();
        return tested;
    };
}

void ProviderConformance::write(ustring_view path, std::string_view bytes, const Options& options) {
    writeFile(storage(), at(path), bytes, options);
}

std::string ProviderConformance::read(ustring_view path) {
    return readFile(storage(), at(path));
}

ProviderConformance::Names ProviderConformance::names(ustring_view folder) {
    return storage().listAllNamesOnly(folder.empty() ? tested().root() : at(folder));
}

void ProviderConformance::expectError(ErrorCode code, const std::function<void()>& operation,
                                      const std::optional<StorageIRI>& location,
                                      foundation::core::SourceLocation place) {
    const testing::ScopedTrace trace(place.file(), static_cast<int>(place.line()), "expected error");
    try {
        operation();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const provider::Exception& failure) {
        EXPECT_EQ(toText(failure.getErrorCode()), toText(code)) << failure.what();
        if (location) {
            EXPECT_EQ(failure.getIRI(), *location);
        }
    }
}

} // namespace kx::test
