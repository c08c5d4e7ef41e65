#pragma once

#include <fl/i18n/ustring.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <vector>

namespace storage::zipprovider {

/// The path of an entry inside the archive: whether it is absolute, and its components from the outermost
/// folder inwards. Only "/" separates; backslashes, drive letters, "." and ".." are text like any other, case
/// and Unicode form are kept. The root is the absolute path with no components. A value type and the key of
/// every map of the archive model. Copies and prefixes share the components, so that the paths of all folders
/// above a file cost no more than the file's.
class ZipEntryPath {
public:
    /// Absolute when `text` begins with "/"; empty pieces between, before and after slashes are dropped, so
    /// "a//b/" gives the same components as "a/b".
    explicit ZipEntryPath(fl::i18n::ustring text);

    /// "/" for the root, "/a/b" for an absolute path, "a/b" for a relative one; never a trailing slash.
    fl::i18n::ustring toString() const { return toString(m_absolute); }
    /// The same with the leading slash chosen by the caller.
    fl::i18n::ustring toString(bool leadingSlash) const;
    /// The text of the folder above: all components but the last. A path without components is its own
    /// parent.
    fl::i18n::ustring parentPath() const;
    /// The last component; empty when there is none.
    fl::i18n::ustring fileName() const;

    bool isAbsolute() const { return m_absolute; }
    /// Valid as long as this path or a copy of it.
    std::span<const fl::i18n::ustring> components() const {
        return m_count == 0 ? std::span<const fl::i18n::ustring>() : std::span(m_components->data(), m_count);
    }
    /// Whether this is the archive's root, "/".
    bool isRoot() const { return m_absolute && m_count == 0; }

    /// This path with one more component. Precondition: `component` is not empty and holds no slash.
    ZipEntryPath child(fl::i18n::ustring_view component) const;
    /// The absolute path with the same components.
    ZipEntryPath asAbsolute() const;
    /// This path with its first `count` components alone. Precondition: it has as many.
    ZipEntryPath prefix(std::size_t count) const;
    /// How many leading components this path and `other` have in common.
    std::size_t commonPrefix(const ZipEntryPath& other) const;
    /// Whether `other` stands below this folder, at any depth.
    bool isAbove(const ZipEntryPath& other) const;
    /// This path with the leading components of `from` replaced by those of `to`.
    /// Precondition: this path is `from` or below it.
    ZipEntryPath rebased(const ZipEntryPath& from, const ZipEntryPath& to) const;

    /// Same components and same kind (relative "a" is not "/a").
    friend bool operator==(const ZipEntryPath& a, const ZipEntryPath& b);
    /// The order of the two text forms by UTF-16 code unit, so "/a-b" and "/a.txt" come before "/a/b".
    friend bool operator<(const ZipEntryPath& a, const ZipEntryPath& b);
    /// How many times this thread has put two paths in order: how the work of look-ups grows, for tests.
    static std::uint64_t comparisons() noexcept;
    /// Writes the text form as UTF-8.
    friend std::ostream& operator<<(std::ostream& out, const ZipEntryPath& path);

private:
    using Components = std::vector<fl::i18n::ustring>;

    ZipEntryPath(bool absolute, Components components);

    bool m_absolute;
    /// How many of the components, from the first on, are this path's.
    std::size_t m_count;
    std::shared_ptr<const Components> m_components;
};

} // namespace storage::zipprovider
