#include "MemoryStore.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstring>
#include <utility>

namespace kx::test {

using fl::i18n::ustring;
using fl::i18n::ustring_view;
using foundation::core::MutexLock;
using provider::EntryKind;
using provider::ErrorCode;
using provider::Exception;

namespace {

boost::posix_time::ptime currentTime() {
    return boost::posix_time::microsec_clock::universal_time();
}

/// Whether a path is its own key; the loop is plain because it runs over very long paths in tests.
bool isKey(ustring_view path) {
    char16_t before = 0;
    for (const char16_t unit : path) {
        if (unit == u'/' && before == u'/') {
            return false;
        }
        before = unit;
    }
    return !path.empty() && path.front() == u'/' && path.back() != u'/';
}

/// "/a/b" for every spelling of it; empty for the root.
ustring keyOf(const MemoryStore::Location& location) {
    const auto& path = location.getResolvedPath();
    if (isKey(path)) {
        return path;
    }
    ustring key;
    for (const char16_t unit : u"/" + path) {
        if (unit != u'/' || key.empty() || key.back() != u'/') {
            key += unit;
        }
    }
    if (key.back() == u'/') {
        key.pop_back();
    }
    return key;
}

ustring parentOf(const ustring& key) {
    return key.substr(0, key.rfind(u'/'));
}

ustring nameOf(const ustring& key) {
    return key.substr(key.rfind(u'/') + 1);
}

bool endsInSlash(const MemoryStore::Location& location) {
    const auto& path = location.getResolvedPath();
    return !path.empty() && path.back() == u'/';
}

} // namespace

MemoryStore::MemoryStore() {
    MutexLock lock(m_mutex);
    m_nodes.emplace(ustring(), Node{EntryKind::Folder, currentTime()});
}

void MemoryStore::createFile(const Location& location) {
    MutexLock lock(m_mutex);
    checkWritable(location);
    if (endsInSlash(location)) {
        throw Exception(ErrorCode::NotFound, location);
    }
    const auto key = keyOf(location);
    auto file =
        std::make_shared<MemoryFile>(MemoryFile{std::make_shared<const std::string>(), currentTime(), key});
    add(location, key, Node{EntryKind::File, {}, std::move(file)});
}

void MemoryStore::createFolder(const Location& location) {
    MutexLock lock(m_mutex);
    checkWritable(location);
    add(location, keyOf(location), Node{EntryKind::Folder, currentTime()});
}

bool MemoryStore::contains(const Location& location, EntryKind kind) const {
    MutexLock lock(m_mutex);
    const auto* node = find(keyOf(location));
    return node != nullptr && node->kind == kind && (kind == EntryKind::Folder || !endsInSlash(location));
}

void MemoryStore::removeFile(const Location& location) {
    MutexLock lock(m_mutex);
    checkWritable(location);
    get(location, EntryKind::File);
    erase(keyOf(location));
}

void MemoryStore::removeFolder(const Location& location) {
    MutexLock lock(m_mutex);
    checkWritable(location);
    if (!get(location, EntryKind::Folder).children.empty()) {
        throw Exception(ErrorCode::FolderNotEmpty, location);
    }
    const auto key = keyOf(location);
    if (key.empty()) {
        throw Exception(ErrorCode::NotSupported, location, "the root cannot be removed");
    }
    erase(key);
}

void MemoryStore::move(const Location& source, const Location& destination, EntryKind kind,
                       provider::MoveOption option) {
    MutexLock lock(m_mutex);
    checkWritable(source);
    get(source, kind);
    const auto from = keyOf(source);
    const auto to = keyOf(destination);
    const auto* existing = find(to);
    if (from == to && replacesExisting(option)) {
        return;
    }
    const bool intoItself = ustring_view(to).substr(0, from.size() + 1) == from + u"/";
    if (intoItself) {
        throw Exception(ErrorCode::NotFound, destination);
    }
    if (existing != nullptr && (existing->kind == EntryKind::Folder || !replacesExisting(option))) {
        throw Exception(ErrorCode::AlreadyExists, destination);
    }
    const auto* folder = find(parentOf(to));
    if (folder == nullptr || folder->kind != EntryKind::Folder) {
        throw Exception(ErrorCode::NotFound, destination);
    }
    if (existing != nullptr) {
        erase(to);
    }
    rename(from, to);
}

provider::FileAttributes MemoryStore::fileAttributes(const Location& location) const {
    MutexLock lock(m_mutex);
    const auto& file = *get(location, EntryKind::File).file;
    return {file.bytes->size(), file.lastModified, !m_readOnly};
}

provider::FolderAttributes MemoryStore::folderAttributes(const Location& location) const {
    MutexLock lock(m_mutex);
    return {get(location, EntryKind::Folder).lastModified, !m_readOnly};
}

std::vector<provider::FolderEntry> MemoryStore::entries(const Location& folder) const {
    MutexLock lock(m_mutex);
    std::vector<provider::FolderEntry> entries;
    for (const auto& [name, kind] : get(folder, EntryKind::Folder).children) {
        entries.emplace_back(name, kind);
    }
    return entries;
}

MemoryStore::OpenedFile MemoryStore::openForReading(const Location& location) const {
    MutexLock lock(m_mutex);
    const auto& file = get(location, EntryKind::File).file;
    return {file, file->bytes};
}

MemoryStore::OpenedFile MemoryStore::openForWriting(const Location& location, bool mustExist) {
    MutexLock lock(m_mutex);
    checkWritable(location);
    const auto key = keyOf(location);
    const auto* node = find(key);
    if (node != nullptr && node->kind == EntryKind::Folder) {
        throw Exception(ErrorCode::AlreadyExists, location, "a folder of this name exists");
    }
    if (endsInSlash(location) || (node == nullptr && mustExist)) {
        throw Exception(ErrorCode::NotFound, location);
    }
    if (node != nullptr) {
        return {node->file, node->file->bytes};
    }
    const auto bytes = std::make_shared<const std::string>();
    auto file = std::make_shared<MemoryFile>(MemoryFile{bytes, currentTime(), key});
    add(location, key, Node{EntryKind::File, {}, file});
    return {std::move(file), bytes, true};
}

void MemoryStore::commit(MemoryFile& file, std::string bytes) {
    auto contents = std::make_shared<const std::string>(std::move(bytes));
    MutexLock lock(m_mutex);
    file.bytes = std::move(contents);
    file.lastModified = currentTime();
}

void MemoryStore::discardCreated(const MemoryFile& file) {
    MutexLock lock(m_mutex);
    const auto* node = find(file.key);
    if (node != nullptr && node->file.get() == &file && file.bytes->empty()) {
        erase(ustring(file.key));
    }
}

void MemoryStore::setReadOnly(bool readOnly) {
    MutexLock lock(m_mutex);
    m_readOnly = readOnly;
}

void MemoryStore::setLastModified(const Location& location, boost::posix_time::ptime time) {
    MutexLock lock(m_mutex);
    const auto found = m_nodes.find(keyOf(location));
    if (found == m_nodes.end()) {
        throw Exception(ErrorCode::NotFound, location);
    }
    auto& node = found->second;
    (node.kind == EntryKind::File ? node.file->lastModified : node.lastModified) = time;
}

void MemoryStore::count(ProviderOperation operation) {
    MutexLock lock(m_mutex);
    ++m_counts[operation];
}

std::uint64_t MemoryStore::countOf(ProviderOperation operation) const {
    MutexLock lock(m_mutex);
    const auto found = m_counts.find(operation);
    return found == m_counts.end() ? 0 : found->second;
}

void MemoryStore::streamOpened() {
    MutexLock lock(m_mutex);
    ++m_openStreams;
}

void MemoryStore::streamDestroyed() noexcept {
    MutexLock lock(m_mutex);
    --m_openStreams;
}

std::uint64_t MemoryStore::openStreams() const {
    MutexLock lock(m_mutex);
    return m_openStreams;
}

bool MemoryStore::SameKey::operator()(const ustring& a, const ustring& b) const noexcept {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

void MemoryStore::checkWritable(const Location& location) const {
    if (m_readOnly) {
        throw Exception(ErrorCode::NotWritable, location);
    }
}

const MemoryStore::Node* MemoryStore::find(const ustring& key) const {
    const auto found = m_nodes.find(key);
    return found == m_nodes.end() ? nullptr : &found->second;
}

const MemoryStore::Node& MemoryStore::get(const Location& location, EntryKind kind) const {
    const auto* node = find(keyOf(location));
    if (node == nullptr || node->kind != kind || (kind == EntryKind::File && endsInSlash(location))) {
        throw Exception(ErrorCode::NotFound, location);
    }
    return *node;
}

void MemoryStore::add(const Location& location, const ustring& key, Node node) {
    if (find(key) != nullptr) {
        throw Exception(ErrorCode::AlreadyExists, location);
    }
    const auto parent = m_nodes.find(parentOf(key));
    if (parent == m_nodes.end() || parent->second.kind != EntryKind::Folder) {
        throw Exception(ErrorCode::NotFound, location);
    }
    parent->second.children.emplace(nameOf(key), node.kind);
    parent->second.lastModified = currentTime();
    m_nodes.emplace(key, std::move(node));
}

void MemoryStore::erase(const ustring& key) {
    auto& parent = m_nodes.at(parentOf(key));
    parent.children.erase(nameOf(key));
    parent.lastModified = currentTime();
    m_nodes.erase(key);
}

void MemoryStore::rename(const ustring& from, const ustring& to) {
    auto& oldParent = m_nodes.at(parentOf(from));
    auto& newParent = m_nodes.at(parentOf(to));
    newParent.children.emplace(nameOf(to), find(from)->kind);
    oldParent.children.erase(nameOf(from));
    oldParent.lastModified = newParent.lastModified = currentTime();

    std::vector<ustring> pending{from};
    while (!pending.empty()) {
        const auto key = std::move(pending.back());
        pending.pop_back();
        auto node = m_nodes.extract(key);
        for (const auto& [name, kind] : node.mapped().children) {
            pending.push_back(key + u"/" + name);
        }
        node.key() = to + key.substr(from.size());
        if (node.mapped().file) {
            node.mapped().file->key = node.key();
        }
        m_nodes.insert(std::move(node));
    }
}

} // namespace kx::test
