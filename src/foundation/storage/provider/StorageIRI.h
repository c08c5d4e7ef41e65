#pragma once

#include <fl/i18n/ustring.h>
#include <foundation/storage/provider/Export.h>

#include <compare>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// The address of a file or folder: a scheme and either a hierarchical part (`file:///home/me/plans.zip`) or,
/// for the scheme of a container format, the container's own IRI, "!" and a path inside it
/// (`zip:file:///home/me/plans.zip!/docs/a.txt`). Containers nest:
/// `zip:zip:file:///outer.zip!/inner.zip!/x`.
///
/// Text form: RFC 3987; characters outside ASCII stand as they are. In a path, "%" and every character that
/// RFC 3987 does not allow there (blanks, controls, `"<>\^`{|}?#`, …) are percent-encoded as UTF-8, and so is
/// a "!" that stands before "/" or at the end of a container's own path, which makes the splitting
/// unambiguous. (Where a path inside a container does not begin with "/", every "!" in a name is.) Parsing
/// accepts more than formatting produces: any percent-encoding is decoded, characters that ought to be
/// encoded are taken as they stand, and `file:/x` is `file:///x`. The scheme is kept in lower case.
///
/// Unpaired surrogates, and bytes under percent-encodings that are not UTF-8, become U+FFFD wherever they
/// come in. Up to 64 containers may stand in one another.
///
/// A value type, immutable but for assignment; copies share their container. Equality and order are those of
/// the canonical text form. Safe to read from several threads.
class KXFLSTORAGEPROVIDER_API StorageIRI {
public:
    /// The empty IRI: no scheme, empty path. It addresses nothing and equals only itself.
    StorageIRI() = default;

    /// Parses the text form.
    /// Errors: std::invalid_argument, `cannot parse storage IRI "…": <cause>`, for a missing or malformed
    /// scheme, a container IRI without "!", a hierarchical path that does not begin with "/", a broken
    /// percent-encoding, or too many containers in one another.
    static StorageIRI parse(fl::i18n::ustring_view text);
    /// The same for text in UTF-8.
    static StorageIRI parse(std::string_view utf8Text);

    /// The IRI of scheme "file" for an absolute path in generic form ("/home/me/plans.zip"; on Windows also
    /// "C:/plans.zip" and "//server/share/plans.zip").
    /// Errors: std::invalid_argument when the path is not absolute.
    static StorageIRI fromLocalPath(fl::i18n::ustring_view absolutePath);

    /// The IRI of `path` inside `container` for the container format `scheme`. The path is taken as decoded
    /// text, exactly as getResolvedPath() will return it.
    /// Errors: std::invalid_argument for a malformed scheme, an empty container IRI, or too many containers
    /// in one another.
    static StorageIRI inContainer(std::string_view scheme, const StorageIRI& container,
                                  fl::i18n::ustring_view path);

    /// The scheme in lower case; empty only for the empty IRI.
    const std::string& getScheme() const noexcept { return m_scheme; }
    /// The authority of a hierarchical IRI ("server" in `file://server/share`), decoded; empty for most.
    const fl::i18n::ustring& getAuthority() const noexcept { return m_authority; }
    /// Whether the IRI addresses something inside a container.
    bool hasContainer() const noexcept { return m_container != nullptr; }
    /// The container's own IRI. Precondition: hasContainer(); else std::logic_error.
    const StorageIRI& getContainer() const;
    /// The path with every percent-encoding decoded: inside the container for a container format, the path of
    /// the file system otherwise. A trailing "/" is kept. Empty for `zip:file:///a.zip!`.
    const fl::i18n::ustring& getResolvedPath() const noexcept { return m_path; }

    /// True for the empty IRI.
    bool empty() const noexcept { return m_scheme.empty(); }

    /// The same place with another path (decoded text). A hierarchical IRI's path is given the leading "/"
    /// that it lacks. Precondition: not empty; else std::invalid_argument.
    StorageIRI withPath(fl::i18n::ustring_view path) const;
    /// The item `name` in the folder that this IRI addresses (a trailing "/" of this IRI makes no
    /// difference).
    StorageIRI child(fl::i18n::ustring_view name) const;
    /// The folder that this item stands in; the root's parent is the root itself.
    StorageIRI parent() const;
    /// The path's last component; empty for the root.
    fl::i18n::ustring getName() const;
    /// Whether `other` is this place or stands somewhere below it (in the same container).
    bool isSameOrAbove(const StorageIRI& other) const;

    /// The canonical text form. `parse(toString()) == *this` for every IRI but the empty one.
    fl::i18n::ustring toString() const;
    /// The same in UTF-8.
    std::string toUtf8() const;

    KXFLSTORAGEPROVIDER_API friend bool operator==(const StorageIRI& a, const StorageIRI& b) noexcept;
    KXFLSTORAGEPROVIDER_API friend std::strong_ordering operator<=>(const StorageIRI& a, const StorageIRI& b);
    /// Writes the canonical text form as UTF-8.
    KXFLSTORAGEPROVIDER_API friend std::ostream& operator<<(std::ostream& out, const StorageIRI& iri);

private:
    std::string m_scheme;
    fl::i18n::ustring m_authority;
    fl::i18n::ustring m_path;
    /// Last, because assignment goes in this order: an IRI that is assigned its own container lets go of the
    /// very object that is copied.
    std::shared_ptr<const StorageIRI> m_container;
};

} // namespace foundation::storage::provider
