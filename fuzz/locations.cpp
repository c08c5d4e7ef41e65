// Covers the text forms of places: IRIs of the vfs, names as archives store them, paths inside an archive,
// and wildcards. What is parsed has to survive being printed and parsed again, and the order of paths has to
// be that of their texts.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/zipprovider/src/EntryName.h>
#include <storage/zipprovider/src/ZipEntryPath.h>

namespace {

using foundation::storage::provider::StorageIRI;
using storage::zipprovider::ZipEntryPath;

void require(bool holds) {
    if (!holds)
        __builtin_trap();
}

void parseLocation(std::string_view text) {
    try {
        const auto iri = StorageIRI::parse(text);
        require(iri.empty() || StorageIRI::parse(iri.toUtf8()) == iri);
        require(iri.empty() || StorageIRI::parse(iri.toString()) == iri);
        require(iri.isSameOrAbove(iri));
        const auto child = iri.child(u"x");
        require(child.getName() == u"x" && iri.isSameOrAbove(child));
        const auto inside = StorageIRI::inContainer("zip", iri, iri.getResolvedPath());
        require(inside.getContainer() == iri && inside.getResolvedPath() == iri.getResolvedPath());
        require(StorageIRI::parse(inside.toUtf8()) == inside);
    } catch (const std::invalid_argument&) {
        // Text that is no IRI is refused; it must not do anything else.
    }
}

void splitPath(const fl::i18n::ustring& text) {
    const ZipEntryPath path(text);
    require(ZipEntryPath(path.toString()) == path);
    require(path.isRoot() || path.components().empty() ||
            ZipEntryPath(path.parentPath()).child(path.fileName()) == path);
    for (const auto& component : path.components())
        require(!component.empty() && component.find(u'/') == component.npos);
}

void comparePaths(const fl::i18n::ustring& left, const fl::i18n::ustring& right) {
    const ZipEntryPath a(left);
    const ZipEntryPath b(right);
    require((a < b) == (a.toString() < b.toString()));
    require((a == b) == (a.toString() == b.toString()));
    if (a.isAbove(b)) {
        const ZipEntryPath to(u"/elsewhere/far");
        require(b.rebased(a, to).rebased(to, a) == b);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    parseLocation(bytes);
    const auto middle = bytes.find('\n');
    const auto first = bytes.substr(0, middle);
    const auto second = middle == bytes.npos ? std::string_view() : bytes.substr(middle + 1);
    for (const bool utf8 : {false, true}) {
        const auto left = storage::zipprovider::decodeEntryName(first, utf8);
        const auto right = storage::zipprovider::decodeEntryName(second, utf8);
        // What was decoded once is text, and comes through encoding and decoding as it is.
        require(storage::zipprovider::decodeEntryName(storage::zipprovider::encodeEntryName(left), true) ==
                fl::i18n::fromUtf8(fl::i18n::toUtf8(left)));
        splitPath(left);
        comparePaths(left, right);
    }
    return 0;
}
