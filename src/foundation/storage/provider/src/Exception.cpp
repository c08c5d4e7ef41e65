#include <foundation/storage/provider/Exception.h>

namespace foundation::storage::provider {

namespace {

std::string messageOf(ErrorCode code, const StorageIRI& iri, std::string_view cause) {
    std::string message(toText(code));
    message += ": ";
    message += iri.toUtf8();
    if (!cause.empty()) {
        message += ": ";
        message += cause;
    }
    return message;
}

} // namespace

Exception::Exception(ErrorCode code, const StorageIRI& iri) : Exception(code, iri, {}) {}

Exception::Exception(ErrorCode code, const StorageIRI& iri, std::string_view cause)
    : std::runtime_error(messageOf(code, iri, cause)), m_code(code), m_iri(iri), m_cause(cause) {}

Exception::~Exception() = default;

} // namespace foundation::storage::provider
