#include <apps/kxvfs/src/Entries.h>

#include <apps/kxvfs/src/Printable.h>

#include <fl/i18n/utf8.h>

#include <algorithm>

namespace apps::kxvfs {

using namespace foundation::storage::provider;

namespace {

void readAttributes(IProvider& provider, Entry& entry) {
    if (entry.folder) {
        entry.modified = provider.getFolderAttributes(entry.iri).getLastModified();
        return;
    }
    const auto attributes = provider.getFileAttributes(entry.iri);
    entry.size = attributes.getSize();
    entry.modified = attributes.getLastModified();
}

} // namespace

std::string joinShown(const std::string& folder, const std::string& name) {
    return folder.empty() || folder.ends_with('/') ? folder + name : folder + "/" + name;
}

Entry entryAt(const Place& place) {
    Entry entry{place.iri(), place.shown(), fl::i18n::toUtf8(place.iri().getName()), false, {}, {}};
    if (place.isFolder())
        entry.folder = true;
    else if (!place.isFile())
        throw CommandError(ErrorCode::NotFound, std::string(toText(ErrorCode::NotFound)));
    readAttributes(place.provider(), entry);
    return entry;
}

std::vector<Entry> entriesIn(Session& session, const Place& place, const Entry& folder, bool wantAttributes) {
    std::vector<Entry> entries;
    const auto listing = place.provider().listAll(folder.iri);
    while (listing->hasNext()) {
        listing->next();
        const auto current = listing->current();
        auto name = fl::i18n::toUtf8(current.getName());
        Entry entry{folder.iri.child(current.getName()),
                    joinShown(folder.shown, name),
                    name,
                    current.isFolder(),
                    {},
                    {}};
        if (wantAttributes)
            session.attempt(entry.shown, [&] { readAttributes(place.provider(), entry); });
        entries.push_back(std::move(entry));
    }
    return entries;
}

void walk(Session& session, const Place& place, const Entry& folder,
          const std::function<void(const Entry&)>& visit) {
    std::vector<Entry> pending;
    const auto enter = [&](const Entry& entered) {
        session.attempt(entered.shown, [&] {
            auto entries = entriesIn(session, place, entered, true);
            pending.insert(pending.end(), std::make_move_iterator(entries.rbegin()),
                           std::make_move_iterator(entries.rend()));
        });
    };
    enter(folder);
    while (!pending.empty()) {
        const auto entry = std::move(pending.back());
        pending.pop_back();
        visit(entry);
        if (entry.folder)
            enter(entry);
    }
}

nlohmann::ordered_json toJson(const Entry& entry) {
    nlohmann::ordered_json object;
    object["path"] = entry.iri.toUtf8();
    object["type"] = entry.folder ? "folder" : "file";
    object["size"] = entry.size ? nlohmann::ordered_json(*entry.size) : nullptr;
    object["modified"] =
        entry.modified.is_special() ? nullptr : nlohmann::ordered_json(isoTime(entry.modified));
    return object;
}

nlohmann::ordered_json toJson(Session& session, const Change& change) {
    nlohmann::ordered_json object{{"path", change.iri.toUtf8()}};
    try {
        if (change.known)
            object = *change.known;
        else
            object = toJson(entryAt({{change.iri, {}}, session.vfs().mount(change.iri)}));
    } catch (const std::exception&) {
        // It was saved, and another program was quick: that is no failure of this change.
    }
    object["action"] = change.action;
    if (!change.source.empty())
        object["source"] = change.source.toUtf8();
    return object;
}

} // namespace apps::kxvfs
