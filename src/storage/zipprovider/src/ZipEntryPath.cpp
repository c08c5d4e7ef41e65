#include "ZipEntryPath.h"

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <ostream>
#include <utility>

namespace storage::zipprovider {

using fl::i18n::ustring;
using fl::i18n::ustring_view;

namespace {

constexpr char16_t separator = u'/';

thread_local std::uint64_t comparisonsOfThread = 0;

/// Yields the code units of a path's text form one by one, so that two paths can be compared without
/// building either text.
class TextCursor {
public:
    TextCursor(std::span<const ustring> components, bool absolute)
        : m_components(components), m_separatorDue(absolute) {}

    bool atEnd() const { return !m_separatorDue && m_component == m_components.size(); }

    char16_t next() {
        if (m_separatorDue) {
            m_separatorDue = false;
            return separator;
        }
        const auto& component = m_components[m_component];
        const char16_t unit = component[m_unit++];
        if (m_unit == component.size()) {
            m_unit = 0;
            ++m_component;
            m_separatorDue = m_component != m_components.size();
        }
        return unit;
    }

private:
    const std::span<const ustring> m_components;
    std::size_t m_component = 0;
    std::size_t m_unit = 0;
    bool m_separatorDue;
};

/// The order of the texts of a relative and an absolute path, whose components begin at different places.
bool isLessUnitByUnit(TextCursor left, TextCursor right) {
    while (!left.atEnd() && !right.atEnd()) {
        const char16_t l = left.next();
        const char16_t r = right.next();
        if (l != r) {
            return l < r;
        }
    }
    return left.atEnd() && !right.atEnd();
}

/// The order of two texts of the same kind: the first two components that differ decide it. Where one of
/// these begins with the other, what follows the shorter one in its text does: a slash, or nothing.
bool isLessByComponents(std::span<const ustring> left, std::span<const ustring> right) {
    const auto [l, r] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    if (l == left.end() || r == right.end()) {
        return l == left.end() && r != right.end();
    }
    const auto common = std::min(l->size(), r->size());
    const auto [lUnit, rUnit] =
        std::mismatch(l->begin(), l->begin() + static_cast<std::ptrdiff_t>(common), r->begin());
    if (lUnit != l->begin() + static_cast<std::ptrdiff_t>(common)) {
        return *lUnit < *rUnit;
    }
    if (lUnit == l->end()) {
        return std::next(l) == left.end() || separator < *rUnit;
    }
    return std::next(r) != right.end() && *lUnit < separator;
}

ustring join(std::span<const ustring> components, bool leadingSlash) {
    ustring text;
    std::size_t length = leadingSlash ? 1 : 0;
    for (const auto& component : components) {
        length += component.size() + 1;
    }
    text.reserve(length);
    if (leadingSlash) {
        text += separator;
    }
    for (const auto& component : components) {
        if (&component != &components.front()) {
            text += separator;
        }
        text += component;
    }
    return text;
}

std::vector<ustring> split(ustring_view text) {
    std::vector<ustring> components;
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = std::min(text.find(separator, begin), text.size());
        if (end != begin) {
            components.emplace_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return components;
}

} // namespace

ZipEntryPath::ZipEntryPath(bool absolute, Components components)
    : m_absolute(absolute), m_count(components.size()),
      m_components(components.empty() ? nullptr : std::make_shared<const Components>(std::move(components))) {
}

ZipEntryPath::ZipEntryPath(ustring text)
    : ZipEntryPath(!text.empty() && text.front() == separator, split(text)) {}

ustring ZipEntryPath::toString(bool leadingSlash) const {
    return join(components(), leadingSlash);
}

ustring ZipEntryPath::parentPath() const {
    return join(components().first(m_count == 0 ? 0 : m_count - 1), m_absolute);
}

ustring ZipEntryPath::fileName() const {
    return m_count == 0 ? ustring() : components().back();
}

ZipEntryPath ZipEntryPath::child(ustring_view component) const {
    Components result;
    result.reserve(m_count + 1);
    result.assign(components().begin(), components().end());
    result.emplace_back(component);
    return {m_absolute, std::move(result)};
}

ZipEntryPath ZipEntryPath::asAbsolute() const {
    ZipEntryPath result = *this;
    result.m_absolute = true;
    return result;
}

ZipEntryPath ZipEntryPath::prefix(std::size_t count) const {
    ZipEntryPath result = *this;
    result.m_count = count;
    return result;
}

std::size_t ZipEntryPath::commonPrefix(const ZipEntryPath& other) const {
    const auto ours = components();
    const auto theirs = other.components();
    const auto differing = std::mismatch(ours.begin(), ours.end(), theirs.begin(), theirs.end());
    return static_cast<std::size_t>(differing.first - ours.begin());
}

bool ZipEntryPath::isAbove(const ZipEntryPath& other) const {
    return m_count < other.m_count && *this == other.prefix(m_count);
}

ZipEntryPath ZipEntryPath::rebased(const ZipEntryPath& from, const ZipEntryPath& to) const {
    const auto kept = components().subspan(from.m_count);
    Components result;
    result.reserve(to.m_count + kept.size());
    result.assign(to.components().begin(), to.components().end());
    result.insert(result.end(), kept.begin(), kept.end());
    return {to.m_absolute, std::move(result)};
}

bool operator==(const ZipEntryPath& a, const ZipEntryPath& b) {
    return a.m_absolute == b.m_absolute && a.m_count == b.m_count &&
           (a.m_components == b.m_components ||
            std::equal(a.components().begin(), a.components().end(), b.components().begin()));
}

bool operator<(const ZipEntryPath& a, const ZipEntryPath& b) {
    ++comparisonsOfThread;
    if (a.m_absolute == b.m_absolute && a.m_components == b.m_components) {
        // One is a prefix of the other.
        return a.m_count < b.m_count;
    }
    if (a.m_absolute == b.m_absolute) {
        return isLessByComponents(a.components(), b.components());
    }
    return isLessUnitByUnit({a.components(), a.m_absolute}, {b.components(), b.m_absolute});
}

std::uint64_t ZipEntryPath::comparisons() noexcept {
    return comparisonsOfThread;
}

std::ostream& operator<<(std::ostream& out, const ZipEntryPath& path) {
    return out << fl::i18n::toUtf8(path.toString());
}

} // namespace storage::zipprovider
