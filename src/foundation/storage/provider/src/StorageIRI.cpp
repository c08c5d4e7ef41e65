#include <foundation/storage/provider/StorageIRI.h>

#include "IriText.h"
#include "LocalPath.h"

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace foundation::storage::provider {

namespace {

using fl::i18n::ustring;
using fl::i18n::ustring_view;

/// Far above any use; it keeps the recursion over containers shallow.
constexpr std::size_t maximumNesting = 64;

/// A text that is quoted in a message; texts of any length may come from outside.
std::string quoted(ustring_view text) {
    constexpr std::size_t limit = 200;
    return "\"" + fl::i18n::toUtf8(text.substr(0, limit)) + (text.size() > limit ? "…\"" : "\"");
}

[[noreturn]] void failToParse(ustring_view text, std::string_view cause) {
    throw std::invalid_argument("cannot parse storage IRI " + quoted(text) + ": " + std::string(cause));
}

ustring decode(ustring_view whole, ustring_view part) {
    auto decoded = detail::decodePercent(part);
    if (!decoded) {
        failToParse(whole, "\"%\" is not followed by two hexadecimal digits");
    }
    return *std::move(decoded);
}

std::string lowerCase(ustring_view scheme) {
    std::string lower;
    for (const char16_t unit : scheme) {
        lower += static_cast<char>(unit >= u'A' && unit <= u'Z' ? unit - u'A' + u'a' : unit);
    }
    return lower;
}

/// The schemes in front of `rest`, which is cut to what follows them. All but the last are those of container
/// formats.
std::vector<std::string> takeSchemes(ustring_view whole, ustring_view& rest) {
    std::vector<std::string> schemes;
    for (auto length = detail::schemeLength(rest); length > 0; length = detail::schemeLength(rest)) {
        if (schemes.size() > maximumNesting) {
            failToParse(whole, "too many containers in one another");
        }
        schemes.push_back(lowerCase(rest.substr(0, length)));
        rest.remove_prefix(length + 1);
    }
    if (schemes.empty()) {
        failToParse(whole, "it does not begin with a scheme and \":\"");
    }
    return schemes;
}

/// Cuts `text` at the first `count` occurrences of `separator`, keeping all but the separator's "!".
std::vector<ustring_view> splitAt(ustring_view text, ustring_view separator, std::size_t count) {
    std::vector<ustring_view> pieces;
    for (auto at = text.find(separator); pieces.size() < count && at != ustring_view::npos;
         at = text.find(separator)) {
        pieces.push_back(text.substr(0, at));
        text.remove_prefix(at + 1);
    }
    pieces.push_back(text);
    return pieces;
}

/// The outermost storage's part and the path inside each of `count` containers.
std::vector<ustring_view> splitContainers(ustring_view whole, ustring_view text, std::size_t count) {
    auto pieces = splitAt(text, u"!/", count);
    if (pieces.size() == count + 1) {
        return pieces;
    }
    if (pieces.size() == count && !pieces.back().empty() && pieces.back().back() == u'!') {
        pieces.back().remove_suffix(1);
        pieces.emplace_back();
        return pieces;
    }
    // Paths that do not begin with "/" leave nothing but the "!" itself to go by; formatting then encodes
    // every other one.
    if (static_cast<std::size_t>(std::count(text.begin(), text.end(), u'!')) == count) {
        return splitAt(text, u"!", count);
    }
    failToParse(whole, "no \"!\" stands behind the container's own IRI");
}

ustring_view withoutTrailingSlashes(ustring_view path) {
    const auto last = path.find_last_not_of(u'/');
    return path.substr(0, last == ustring_view::npos ? 0 : last + 1);
}

} // namespace

StorageIRI StorageIRI::parse(ustring_view text) {
    const ustring paired = detail::replaceUnpairedSurrogates(text);
    ustring_view rest = paired;
    const auto schemes = takeSchemes(paired, rest);
    const auto containers = schemes.size() - 1;
    const auto pieces = splitContainers(paired, rest, containers);

    StorageIRI iri;
    iri.m_scheme = schemes.back();
    ustring_view path = pieces.front();
    if (path.substr(0, 2) == u"//") {
        path.remove_prefix(2);
        const auto authority = path.substr(0, path.find(u'/'));
        iri.m_authority = decode(paired, authority);
        path.remove_prefix(authority.size());
    }
    if (!path.empty() && path.front() != u'/') {
        failToParse(paired, "the path does not begin with \"/\"");
    }
    iri.m_path = decode(paired, path);
    for (std::size_t level = 1; level <= containers; ++level) {
        iri = inContainer(schemes[containers - level], iri, decode(paired, pieces[level]));
    }
    return iri;
}

StorageIRI StorageIRI::parse(std::string_view utf8Text) {
    return parse(fl::i18n::fromUtf8(utf8Text));
}

StorageIRI StorageIRI::fromLocalPath(ustring_view absolutePath) {
    auto parts = detail::splitLocalPath(absolutePath);
    if (!parts) {
        throw std::invalid_argument("cannot address local path " + quoted(absolutePath) +
                                    ": it is not absolute");
    }
    StorageIRI iri;
    iri.m_scheme = "file";
    iri.m_authority = detail::replaceUnpairedSurrogates(parts->authority);
    iri.m_path = detail::replaceUnpairedSurrogates(parts->path);
    return iri;
}

StorageIRI StorageIRI::inContainer(std::string_view scheme, const StorageIRI& container, ustring_view path) {
    const ustring wideScheme = fl::i18n::fromUtf8(scheme);
    const auto fail = [&](const std::string& cause) {
        throw std::invalid_argument("cannot address inside container " + quoted(container.toString()) + ": " +
                                    cause);
    };
    if (!detail::isScheme(wideScheme)) {
        fail(quoted(wideScheme) + " is not a scheme");
    }
    if (container.empty()) {
        fail("its IRI is empty");
    }
    std::size_t nesting = 1;
    for (const auto* outer = container.m_container.get(); outer != nullptr;
         outer = outer->m_container.get()) {
        ++nesting;
    }
    if (nesting > maximumNesting) {
        fail("too many containers in one another");
    }
    StorageIRI iri;
    iri.m_scheme = lowerCase(wideScheme);
    iri.m_container = std::make_shared<const StorageIRI>(container);
    iri.m_path = detail::replaceUnpairedSurrogates(path);
    return iri;
}

const StorageIRI& StorageIRI::getContainer() const {
    if (!m_container) {
        throw std::logic_error("cannot tell the container of \"" + toUtf8() + "\": it is not inside one");
    }
    return *m_container;
}

StorageIRI StorageIRI::withPath(ustring_view path) const {
    if (empty()) {
        throw std::invalid_argument("cannot give the empty IRI the path " + quoted(path));
    }
    StorageIRI iri = *this;
    iri.m_path = detail::replaceUnpairedSurrogates(path);
    if (!hasContainer() && !path.empty() && path.front() != u'/') {
        iri.m_path.insert(0, 1, u'/');
    }
    return iri;
}

StorageIRI StorageIRI::child(ustring_view name) const {
    if (empty()) {
        throw std::invalid_argument("cannot address " + quoted(name) + " in the empty IRI");
    }
    StorageIRI iri = *this;
    if (m_path.empty() || m_path.back() != u'/') {
        iri.m_path += u'/';
    }
    iri.m_path += detail::replaceUnpairedSurrogates(name);
    return iri;
}

StorageIRI StorageIRI::parent() const {
    const auto path = withoutTrailingSlashes(m_path);
    StorageIRI iri = *this;
    if (!path.empty()) {
        const auto slash = path.rfind(u'/');
        const bool relative = slash == ustring_view::npos;
        const auto folder = relative ? ustring_view() : withoutTrailingSlashes(path.substr(0, slash));
        iri.m_path = folder.empty() && !relative ? ustring_view(u"/") : folder;
    }
    return iri;
}

ustring StorageIRI::getName() const {
    const auto path = withoutTrailingSlashes(m_path);
    const auto slash = path.rfind(u'/');
    return ustring(slash == ustring_view::npos ? path : path.substr(slash + 1));
}

bool StorageIRI::isSameOrAbove(const StorageIRI& other) const {
    const bool sameContainer = m_container == other.m_container ||
                               (m_container && other.m_container && *m_container == *other.m_container);
    if (m_scheme != other.m_scheme || m_authority != other.m_authority || !sameContainer) {
        return false;
    }
    const auto above = withoutTrailingSlashes(m_path);
    const auto below = withoutTrailingSlashes(other.m_path);
    return below.substr(0, above.size()) == above &&
           (above.empty() || below.size() == above.size() || below[above.size()] == u'/');
}

ustring StorageIRI::toString() const {
    if (empty()) {
        return {};
    }
    std::vector<const StorageIRI*> levels;
    bool everyPathIsAbsolute = true;
    for (const auto* level = this; level != nullptr; level = level->m_container.get()) {
        const bool absolute = level->m_path.empty() ? level == this : level->m_path.front() == u'/';
        everyPathIsAbsolute = everyPathIsAbsolute && (absolute || !level->hasContainer());
        levels.push_back(level);
    }
    ustring text;
    for (const auto* level : levels) {
        text += fl::i18n::fromUtf8(level->m_scheme);
        text += u':';
    }
    text += u"//";
    detail::appendEncodedAuthority(text, levels.back()->m_authority);
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
        const auto bangs = !everyPathIsAbsolute ? detail::BangEncoding::All
                           : *level == this     ? detail::BangEncoding::BeforeSlash
                                                : detail::BangEncoding::BeforeSlashAndAtEnd;
        text += (*level)->hasContainer() ? ustring_view(u"!") : ustring_view();
        detail::appendEncodedPath(text, (*level)->m_path, bangs);
    }
    return text;
}

std::string StorageIRI::toUtf8() const {
    return fl::i18n::toUtf8(toString());
}

bool operator==(const StorageIRI& a, const StorageIRI& b) noexcept {
    const bool sameContainer = a.m_container == b.m_container ||
                               (a.m_container && b.m_container && *a.m_container == *b.m_container);
    return a.m_path == b.m_path && a.m_scheme == b.m_scheme && a.m_authority == b.m_authority &&
           sameContainer;
}

std::strong_ordering operator<=>(const StorageIRI& a, const StorageIRI& b) {
    // Mostly a location is compared with itself, as the key of a map that it is in.
    return a == b ? std::strong_ordering::equal : a.toString().compare(b.toString()) <=> 0;
}

std::ostream& operator<<(std::ostream& out, const StorageIRI& iri) {
    return out << iri.toUtf8();
}

} // namespace foundation::storage::provider
