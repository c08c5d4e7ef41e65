#include "ComponentMetadata.h"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/servicecomponent/ComponentConstants.hpp>

#include <algorithm>
#include <stdexcept>

namespace cppmicroservices {

namespace {

/// The part of a manifest at a path, for reading with messages that give the path.
class Node {
public:
    Node(const AnyMap& values, std::string path) : m_values(values), m_path(std::move(path)) {}

    bool has(const std::string& key) const { return m_values.count(key) != 0; }

    template <typename T>
    const T& get(const std::string& key, const char* expected) const {
        const auto found = m_values.find(key);
        if (found == m_values.end())
            fail(key, "is missing");
        const T* const value = any_cast<T>(&found->second);
        if (!value)
            fail(key, std::string("is not ") + expected);
        return *value;
    }

    const std::string& text(const std::string& key) const {
        const std::string& value = get<std::string>(key, "a text");
        if (value.empty())
            fail(key, "is empty");
        return value;
    }

    Node map(const std::string& key) const { return Node(get<AnyMap>(key, "an object"), m_path + "." + key); }

    const AnyMap& values() const { return m_values; }
    const std::string& path() const { return m_path; }

    [[noreturn]] void fail(const std::string& key, const std::string& problem) const {
        throw std::runtime_error("the manifest's " + m_path + "." + key + " " + problem);
    }

private:
    const AnyMap& m_values;
    std::string m_path;
};

constexpr const char* unsupported = "asks for something that the embedded component runtime does not do";

void refuseUnsupported(const Node& component) {
    for (const char* key : {"factory", "factory-properties", "configuration-policy", "configuration-pid"})
        if (component.has(key))
            component.fail(key, unsupported);
    if (component.has("references") && !component.get<std::vector<Any>>("references", "a list").empty())
        component.fail("references", unsupported);
    if (component.has("immediate") && component.get<bool>("immediate", "true or false"))
        component.fail("immediate", unsupported);
    if (component.has("enabled") && !component.get<bool>("enabled", "true or false"))
        component.fail("enabled", unsupported);
}

std::vector<std::string> readInterfaces(const Node& service) {
    if (service.has("scope") && service.text("scope") != Constants::SCOPE_SINGLETON)
        service.fail("scope", unsupported);
    std::vector<std::string> result;
    for (const Any& element : service.get<std::vector<Any>>("interfaces", "a list")) {
        const std::string* const name = any_cast<std::string>(&element);
        const std::size_t start = name ? name->find_first_not_of(':') : std::string::npos;
        if (start == std::string::npos)
            service.fail("interfaces", "has an element that is no name");
        if (std::find(result.begin(), result.end(), name->substr(start)) == result.end())
            result.push_back(name->substr(start));
    }
    if (result.empty())
        service.fail("interfaces", "is empty");
    return result;
}

ComponentMetadata readComponent(const Node& component) {
    refuseUnsupported(component);
    ComponentMetadata result;
    result.implementationClass = component.text("implementation-class");
    result.name = component.has("name") ? component.text("name") : result.implementationClass;
    result.interfaces = readInterfaces(component.map("service"));
    if (component.has("properties"))
        result.properties = component.map("properties").values();
    return result;
}

} // namespace

std::string ComponentMetadata::symbol() const {
    std::string result = implementationClass;
    for (std::size_t at = result.find("::"); at != std::string::npos; at = result.find("::", at))
        result.replace(at, 2, "_");
    return result;
}

std::vector<ComponentMetadata> describedComponents(const AnyMap& headers) {
    const std::string& key = service::component::ComponentConstants::SERVICE_COMPONENT;
    const auto found = headers.find(key);
    if (found == headers.end())
        return {};
    const AnyMap* const values = any_cast<AnyMap>(&found->second);
    if (!values)
        throw std::runtime_error("the manifest's " + key + " is not an object");
    const Node scr(*values, key);
    if (scr.get<int>("version", "a number") != 1)
        scr.fail("version", "is not 1");
    const auto& list = scr.get<std::vector<Any>>("components", "a list");
    std::vector<ComponentMetadata> result;
    for (std::size_t index = 0; index < list.size(); ++index) {
        const AnyMap* const component = any_cast<AnyMap>(&list[index]);
        if (!component)
            scr.fail("components", "has an element that is not an object");
        result.push_back(readComponent(Node(*component, key + ".components." + std::to_string(index))));
    }
    return result;
}

} // namespace cppmicroservices
