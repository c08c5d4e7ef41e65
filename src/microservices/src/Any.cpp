#include <cppmicroservices/Any.h>
#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/ServiceInterface.h>

#include <sstream>
#include <stdexcept>
#include <vector>

namespace cppmicroservices {

namespace {

template <typename Range, typename Print>
void writeList(std::ostream& stream, const Range& range, char open, char close, Print print) {
    stream << open;
    const char* separator = "";
    for (const auto& element : range) {
        stream << separator;
        print(element);
        separator = ", ";
    }
    stream << close;
}

template <typename T>
bool writeIf(std::ostream& stream, const Any& any) {
    const T* const value = any_cast<T>(&any);
    if (value)
        stream << *value;
    return value != nullptr;
}

template <typename... Types>
bool writeIfOneOf(std::ostream& stream, const Any& any) {
    return (writeIf<Types>(stream, any) || ...);
}

void write(std::ostream& stream, const Any& any) {
    if (any.Empty())
        return;
    if (writeIfOneOf<std::string, const char*, bool, char, signed char, unsigned char, short, unsigned short,
                     int, unsigned, long, unsigned long, long long, unsigned long long, float, double>(stream,
                                                                                                       any))
        return;
    if (const auto* const map = any_cast<AnyMap>(&any))
        writeList(stream, *map, '{', '}', [&](const AnyMap::value_type& entry) {
            stream << entry.first << ": ";
            write(stream, entry.second);
        });
    else if (const auto* const list = any_cast<std::vector<Any>>(&any))
        writeList(stream, *list, '[', ']', [&](const Any& element) { write(stream, element); });
    else if (const auto* const texts = any_cast<std::vector<std::string>>(&any))
        writeList(stream, *texts, '[', ']', [&](const std::string& text) { stream << text; });
    else
        stream << detail::GetDemangledName(any.Type());
}

} // namespace

std::string Any::ToString() const {
    if (Empty())
        throw std::logic_error("an empty cppmicroservices::Any has no text");
    return ToStringNoExcept();
}

std::string Any::ToStringNoExcept() const {
    std::ostringstream stream;
    stream << std::boolalpha;
    write(stream, *this);
    return stream.str();
}

BadAnyCastException::BadAnyCastException(std::string message) : m_message(std::move(message)) {}

BadAnyCastException::~BadAnyCastException() = default;

const char* BadAnyCastException::what() const noexcept {
    return m_message.c_str();
}

void detail::ThrowBadAnyCastException(const std::string& operation, const std::type_info& source,
                                      const std::type_info& target) {
    throw BadAnyCastException("cppmicroservices::" + operation + ": the value is of type " +
                              GetDemangledName(source) + ", not " + GetDemangledName(target));
}

} // namespace cppmicroservices
