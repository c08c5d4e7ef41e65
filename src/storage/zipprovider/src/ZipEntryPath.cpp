#include "ZipEntryPath.h"

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <cstddef>
#include <ostream>

namespace storage::zipprovider {

using fl::i18n::ustring;
using fl::i18n::ustring_view;

namespace {

constexpr char16_t separator = u'/';

/// Yields the code units of a path's text form one by one, so that two paths can be compared without
/// building either text.
class TextCursor {
public:
    TextCursor(const std::vector<ustring>& components, bool absolute)
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
    const std::vector<ustring>& m_components;
    std::size_t m_component = 0;
    std::size_t m_unit = 0;
    bool m_separatorDue;
};

ustring join(const std::vector<ustring>& components, std::size_t count, bool leadingSlash) {
    ustring text;
    std::size_t length = leadingSlash ? 1 : 0;
    for (std::size_t i = 0; i < count; ++i) {
        length += components[i].size() + 1;
    }
    text.reserve(length);
    if (leadingSlash) {
        text += separator;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) {
            text += separator;
        }
        text += components[i];
    }
    return text;
}

} // namespace

ZipEntryPath::ZipEntryPath(ustring text) : m_absolute(!text.empty() && text.front() == separator) {
    const ustring_view view = text;
    for (std::size_t begin = 0; begin < view.size();) {
        const auto end = std::min(view.find(separator, begin), view.size());
        if (end != begin) {
            m_components.emplace_back(view.substr(begin, end - begin));
        }
        begin = end + 1;
    }
}

ustring ZipEntryPath::toString(bool leadingSlash) const {
    return join(m_components, m_components.size(), leadingSlash);
}

ustring ZipEntryPath::parentPath() const {
    return join(m_components, m_components.empty() ? 0 : m_components.size() - 1, m_absolute);
}

ustring ZipEntryPath::fileName() const {
    return m_components.empty() ? ustring() : m_components.back();
}

ZipEntryPath ZipEntryPath::child(ustring_view component) const {
    ZipEntryPath result = *this;
    result.m_components.emplace_back(component);
    return result;
}

ZipEntryPath ZipEntryPath::asAbsolute() const {
    ZipEntryPath result = *this;
    result.m_absolute = true;
    return result;
}

bool ZipEntryPath::isAbove(const ZipEntryPath& other) const {
    return m_absolute == other.m_absolute && m_components.size() < other.m_components.size() &&
           std::equal(m_components.begin(), m_components.end(), other.m_components.begin());
}

ZipEntryPath ZipEntryPath::rebased(const ZipEntryPath& from, const ZipEntryPath& to) const {
    ZipEntryPath result = to;
    const auto kept = static_cast<std::ptrdiff_t>(from.m_components.size());
    result.m_components.insert(result.m_components.end(), m_components.begin() + kept, m_components.end());
    return result;
}

bool operator<(const ZipEntryPath& a, const ZipEntryPath& b) {
    TextCursor left(a.m_components, a.m_absolute);
    TextCursor right(b.m_components, b.m_absolute);
    while (!left.atEnd() && !right.atEnd()) {
        const char16_t l = left.next();
        const char16_t r = right.next();
        if (l != r) {
            return l < r;
        }
    }
    return left.atEnd() && !right.atEnd();
}

std::ostream& operator<<(std::ostream& out, const ZipEntryPath& path) {
    return out << fl::i18n::toUtf8(path.toString());
}

} // namespace storage::zipprovider
