#include "ManifestReader.h"

#include "ArchiveFile.h"

#include <cppmicroservices/Constants.h>

#include <minizip/unzip.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace cppmicroservices {

namespace {

constexpr std::string_view manifestName = "/manifest.json";
// Far above any manifest that a person writes; they keep a damaged file from taking all memory or stack.
constexpr std::uint64_t maximumManifestSize = std::uint64_t(16) << 20;
constexpr int maximumDepth = 100;

struct CloseArchive {
    void operator()(void* archive) const noexcept { unzClose(archive); }
};
using Archive = std::unique_ptr<void, CloseArchive>;

struct CloseEntry {
    void operator()(void* archive) const noexcept { unzCloseCurrentFile(archive); }
};

Any toAny(const nlohmann::json& value, int depth);

AnyMap toMap(const nlohmann::json& object, int depth) {
    AnyMap result(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& member : object.items()) {
        Any value = toAny(member.value(), depth);
        if (!value.Empty())
            result.emplace(member.key(), std::move(value));
    }
    return result;
}

Any toNumber(const nlohmann::json& value) {
    if (value.is_number_float())
        return value.get<double>();
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() > std::uint64_t(std::numeric_limits<long long>::max()))
        return value.get<double>();
    const auto number = value.get<long long>();
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())
        return number;
    return static_cast<int>(number);
}

Any toAny(const nlohmann::json& value, int depth) {
    if (depth > maximumDepth)
        throw std::runtime_error("is nested too deeply");
    if (value.is_object())
        return toMap(value, depth + 1);
    if (value.is_array()) {
        std::vector<Any> list;
        for (const nlohmann::json& element : value) {
            Any converted = toAny(element, depth + 1);
            if (!converted.Empty())
                list.push_back(std::move(converted));
        }
        return list;
    }
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_boolean())
        return value.get<bool>();
    if (value.is_number())
        return toNumber(value);
    return Any();
}

std::string readCurrentEntry(unzFile archive) {
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(archive, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
        unzOpenCurrentFile(archive) != UNZ_OK)
        throw std::runtime_error("cannot be read");
    std::unique_ptr<void, CloseEntry> entry(archive);
    if (info.uncompressed_size > maximumManifestSize)
        throw std::runtime_error("is larger than 16 MiB");
    std::string text(static_cast<std::size_t>(info.uncompressed_size), '\0');
    const int count = unzReadCurrentFile(archive, text.data(), static_cast<unsigned>(text.size()));
    // Only closing tells whether the checksum was right.
    if (count < 0 || static_cast<std::size_t>(count) != text.size() ||
        unzCloseCurrentFile(entry.release()) != UNZ_OK)
        throw std::runtime_error("is damaged");
    return text;
}

/// "1", "1.2", "1.2.3" or "1.2.3.words-and_numbers".
bool isVersion(const std::string& text) {
    static const std::regex form("[0-9]{1,9}(\\.[0-9]{1,9}(\\.[0-9]{1,9}(\\.[A-Za-z0-9_-]*)?)?)?");
    return std::regex_match(text, form);
}

void requireVersion(const AnyMap& headers) {
    const auto version = headers.find(Constants::BUNDLE_VERSION);
    if (version == headers.end())
        return;
    const std::string* const text = any_cast<std::string>(&version->second);
    if (!text || !isVersion(*text))
        throw std::runtime_error("has a " + Constants::BUNDLE_VERSION +
                                 " that is no version: " + version->second.ToString());
}

Manifest parse(const std::string& text, const std::string& folder) {
    nlohmann::json document;
    try {
        document = nlohmann::json::parse(text);
    } catch (const nlohmann::json::parse_error& error) {
        throw std::runtime_error(std::string("is not valid JSON: ") + error.what());
    }
    if (!document.is_object())
        throw std::runtime_error("is not a JSON object");
    Manifest manifest{folder, toMap(document, 0)};
    const auto name = manifest.headers.find(Constants::BUNDLE_SYMBOLICNAME);
    if (name == manifest.headers.end())
        throw std::runtime_error("lacks " + Constants::BUNDLE_SYMBOLICNAME);
    const std::string* const symbolicName = any_cast<std::string>(&name->second);
    if (!symbolicName || *symbolicName != folder)
        throw std::runtime_error("has the " + Constants::BUNDLE_SYMBOLICNAME + " '" +
                                 name->second.ToString() + "', not that of its folder");
    requireVersion(manifest.headers);
    return manifest;
}

std::string currentName(unzFile archive) {
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(archive, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        throw std::runtime_error("its ZIP archive is damaged");
    std::string name(info.size_filename, '\0');
    if (unzGetCurrentFileInfo64(archive, &info, name.data(), info.size_filename, nullptr, 0, nullptr, 0) !=
        UNZ_OK)
        throw std::runtime_error("its ZIP archive is damaged");
    return name;
}

bool isManifest(const std::string& name) {
    return name.size() > manifestName.size() && name.find('/') == name.size() - manifestName.size() &&
           std::string_view(name).ends_with(manifestName);
}

Archive open(const std::string& location) {
    std::error_code error;
    const std::filesystem::file_status status =
        std::filesystem::status(std::u8string(location.begin(), location.end()), error);
    if (!std::filesystem::exists(status))
        throw std::runtime_error(error ? error.message() : "no such file");
    if (!std::filesystem::is_regular_file(status))
        throw std::runtime_error("not a file");
    Archive archive(openArchiveFile(location));
    if (!archive)
        throw std::runtime_error("it has no manifest: no ZIP archive stands at its end");
    return archive;
}

} // namespace

std::vector<Manifest> readManifests(const std::string& location) {
    const Archive archive = open(location);
    std::vector<Manifest> manifests;
    int result = unzGoToFirstFile(archive.get());
    for (; result == UNZ_OK; result = unzGoToNextFile(archive.get())) {
        const std::string name = currentName(archive.get());
        if (!isManifest(name))
            continue;
        try {
            manifests.push_back(
                parse(readCurrentEntry(archive.get()), name.substr(0, name.size() - manifestName.size())));
        } catch (const std::runtime_error& problem) {
            throw std::runtime_error("its " + name + " " + problem.what());
        }
    }
    if (result != UNZ_END_OF_LIST_OF_FILE)
        throw std::runtime_error("its ZIP archive is damaged");
    if (manifests.empty())
        throw std::runtime_error(
            "it has no manifest: its ZIP archive has no entry <symbolic name>/manifest.json");
    std::sort(manifests.begin(), manifests.end(), [](const Manifest& left, const Manifest& right) {
        return left.symbolicName < right.symbolicName;
    });
    return manifests;
}

} // namespace cppmicroservices
