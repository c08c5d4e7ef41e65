#pragma once

#include <foundation/storage/provider/ErrorCode.h>
#include <foundation/storage/provider/Export.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::storage::provider {

/// The failure that a provider reports to its host: what went wrong (ErrorCode) and with which item.
/// `what()` reads "<code in words>: <IRI>", followed by ": <cause>" when a cause was given.
class KXFLSTORAGEPROVIDER_API Exception : public std::runtime_error {
public:
    Exception(ErrorCode code, const StorageIRI& iri);
    /// With a cause, a lower-case clause in UTF-8 ("no space left on device").
    Exception(ErrorCode code, const StorageIRI& iri, std::string_view cause);
    ~Exception() override;

    ErrorCode getErrorCode() const noexcept { return m_code; }
    const StorageIRI& getIRI() const noexcept { return m_iri; }
    /// The cause alone; empty when none was given.
    const std::string& getCause() const noexcept { return m_cause; }

private:
    ErrorCode m_code;
    StorageIRI m_iri;
    std::string m_cause;
};

} // namespace foundation::storage::provider
