#include <storage/mount/src/MountRecordText.h>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace storage::mount {

using Json = nlohmann::ordered_json;

namespace {

std::string stateOf(const MountRecord& record) {
    if (record.ended)
        return record.alive ? "saving" : "ended";
    return record.alive ? "mounted" : "killed";
}

std::string isoTime(std::chrono::system_clock::time_point time) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

std::chrono::system_clock::time_point fromSeconds(std::int64_t seconds) {
    return std::chrono::system_clock::time_point(std::chrono::seconds(seconds));
}

std::string dump(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

std::string toJson(const MountRecord& record) {
    const auto& condition = record.condition;
    Json json{{"archive", record.archive},
              {"mountPoint", record.mountPoint.string()},
              {"process", record.process},
              {"readOnly", record.readOnly},
              {"state", stateOf(record)},
              {"unsavedChanges", condition.unsavedChanges},
              {"unsavedBytes", condition.unsavedBytes},
              {"saves", condition.saves},
              {"lastSave", nullptr},
              {"failure", record.failure},
              {"rescue", condition.rescue.string()},
              {"rescueList", condition.rescueList.string()}};
    if (const auto& save = condition.lastSave)
        json["lastSave"] = {{"time", isoTime(save->ended)},
                            {"milliseconds", save->duration.count()},
                            {"failure", save->failure}};
    return dump(json);
}

std::string toRecordText(const MountRecord& record) {
    auto json = Json::parse(toJson(record));
    json["ended"] = record.ended;
    if (const auto& save = record.condition.lastSave)
        json["lastSave"]["seconds"] =
            std::chrono::duration_cast<std::chrono::seconds>(save->ended.time_since_epoch()).count();
    return dump(json);
}

std::optional<MountRecord> fromRecordText(const std::string& text) {
    try {
        const auto json = Json::parse(text);
        MountRecord record;
        record.archive = json.at("archive");
        record.mountPoint = json.at("mountPoint").get<std::string>();
        record.process = json.at("process");
        record.readOnly = json.at("readOnly");
        record.ended = json.at("ended");
        record.failure = json.at("failure");
        record.condition.unsavedChanges = json.at("unsavedChanges");
        record.condition.unsavedBytes = json.at("unsavedBytes");
        record.condition.saves = json.at("saves");
        record.condition.rescue = json.at("rescue").get<std::string>();
        record.condition.rescueList = json.at("rescueList").get<std::string>();
        if (const auto& save = json.at("lastSave"); !save.is_null())
            record.condition.lastSave = LastSave{
                fromSeconds(save.at("seconds").get<std::int64_t>()),
                std::chrono::milliseconds(save.at("milliseconds").get<std::int64_t>()), save.at("failure")};
        return record;
    } catch (const Json::exception&) {
        // It is being written, or is no record.
        return std::nullopt;
    }
}

} // namespace storage::mount
