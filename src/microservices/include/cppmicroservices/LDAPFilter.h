#pragma once

#include <cppmicroservices/AnyMap.h>

#include <iosfwd>
#include <memory>
#include <string>

namespace cppmicroservices {

class Bundle;
class FilterExpression;
class ServiceReferenceBase;

/// A condition on properties, in the notation of RFC 1960:
///
///     (scheme=zip)                          equal
///     (name=lib*zip)                        with any text in place of *
///     (scheme=*)                            present
///     (size>=10) (size<=20) (name~=Zip)     ordered; equal but for case and blanks
///     (&(a=1)(b=2)) (|(a=1)(b=2)) (!(a=1))  all, any, not
///
/// In a value "\" takes the special meaning from the next of "(", ")", "*", "\". Numbers are compared as
/// numbers, true and false without regard to case, texts exactly; a list matches if one of its elements does.
/// A property that is missing matches nothing. Threads: may be used from several threads.
class US_Framework_EXPORT LDAPFilter {
public:
    /// An invalid filter, which matches nothing.
    LDAPFilter();
    /// Throws std::invalid_argument if `filter` is not a well-formed expression; the text says where.
    LDAPFilter(const std::string& filter);
    LDAPFilter(const LDAPFilter&);
    LDAPFilter& operator=(const LDAPFilter&);
    ~LDAPFilter();

    explicit operator bool() const;

    /// Whether a service's properties match. The case of names does not count.
    bool Match(const ServiceReferenceBase& reference) const;
    /// Whether the top level of a bundle's manifest matches. The case of names does not count.
    bool Match(const Bundle& bundle) const;
    /// Whether the values of `dictionary` match. The case of names does not count.
    bool Match(const AnyMap& dictionary) const;
    /// As Match, but the case of names counts.
    bool MatchCase(const AnyMap& dictionary) const;

    /// The expression without the blanks that do not count; an empty text for an invalid filter.
    std::string ToString() const;
    bool operator==(const LDAPFilter& other) const;

private:
    std::shared_ptr<const FilterExpression> m_expression;
};

US_Framework_EXPORT std::ostream& operator<<(std::ostream& stream, const LDAPFilter& filter);

} // namespace cppmicroservices
