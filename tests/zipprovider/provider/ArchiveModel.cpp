#include "ArchiveModel.h"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

namespace kx::test {

using namespace foundation::storage::provider;

namespace {

std::int64_t localTimeOf(std::int64_t seconds) {
    const std::time_t instant = seconds;
    std::tm local{};
    ::localtime_r(&instant, &local);
    return ::timegm(&local);
}

} // namespace

ArchiveModel::ArchiveModel() {
    m_nodes["/"] = std::make_shared<Node>(Node{.isFolder = true});
}

bool ArchiveModel::isFile(const std::string& path) const {
    const auto place = m_nodes.find(path);
    return place != m_nodes.end() && !place->second->isFolder;
}

bool ArchiveModel::isFolder(const std::string& path) const {
    const auto place = m_nodes.find(path);
    return place != m_nodes.end() && place->second->isFolder;
}

const std::string& ArchiveModel::bytesOf(const Node& node, WorkingFile& keep) {
    keep = node.working.lock();
    return keep ? *keep : node.saved;
}

bool ArchiveModel::wouldBeNamedLikeAFolderAbove(const std::string& from, const std::string& to) const {
    const auto clashes = [](const std::string& path) {
        const auto name = path.substr(path.rfind('/')) + "/";
        return path.find(name) != std::string::npos;
    };
    return clashes(to) || std::any_of(m_nodes.begin(), m_nodes.end(), [&](const auto& node) {
               return node.first.starts_with(from + "/") && clashes(to + node.first.substr(from.size()));
           });
}

auto ArchiveModel::checkNew(const std::string& path) const -> Refusal {
    if (m_nodes.contains(path)) {
        return ErrorCode::AlreadyExists;
    }
    return isFolder(parentOf(path)) ? Refusal() : ErrorCode::NotFound;
}

auto ArchiveModel::checkRemoveFile(const std::string& path) const -> Refusal {
    return isFile(path) ? Refusal() : ErrorCode::NotFound;
}

auto ArchiveModel::checkRemoveFolder(const std::string& path) const -> Refusal {
    if (path == "/" || !isFolder(path)) {
        return ErrorCode::NotFound;
    }
    const auto below = m_nodes.lower_bound(path + "/");
    const bool isEmpty = below == m_nodes.end() || !below->first.starts_with(path + "/");
    return isEmpty ? Refusal() : ErrorCode::FolderNotEmpty;
}

auto ArchiveModel::checkMove(const std::string& from, const std::string& to, bool folder, bool replaces) const
    -> Refusal {
    if (from == "/" || !(folder ? isFolder(from) : isFile(from))) {
        return ErrorCode::NotFound;
    }
    if (from == to) {
        return replaces ? Refusal() : ErrorCode::AlreadyExists;
    }
    if (folder && to.starts_with(from + "/")) {
        return ErrorCode::NotFound;
    }
    if (!isFolder(parentOf(to))) {
        return ErrorCode::NotFound;
    }
    return isFolder(to) || (isFile(to) && !replaces) ? ErrorCode::AlreadyExists : Refusal();
}

auto ArchiveModel::checkOpenForWriting(const std::string& path, const Options& options) const -> Refusal {
    if (isFile(path)) {
        return {};
    }
    if (!isFolder(parentOf(path))) {
        return ErrorCode::NotFound;
    }
    if (isFolder(path)) {
        return ErrorCode::AlreadyExists;
    }
    return options.disposition == StreamDisposition::OpenExisting ? Refusal(ErrorCode::NotFound) : Refusal();
}

void ArchiveModel::createFile(const std::string& path) {
    openForWriting(path, Options::overwrite());
    close(std::prev(m_streams.end()));
}

void ArchiveModel::createFolder(const std::string& path) {
    m_nodes[path] = std::make_shared<Node>(Node{.isFolder = true, .stamp = m_now, .isUnsaved = true});
    changed();
}

void ArchiveModel::remove(const std::string& path) {
    m_nodes.at(path)->isGone = true;
    m_nodes.erase(path);
    changed();
}

void ArchiveModel::move(const std::string& from, const std::string& to) {
    if (from == to) {
        return;
    }
    if (const auto replaced = m_nodes.find(to); replaced != m_nodes.end()) {
        replaced->second->isGone = true;
        m_nodes.erase(replaced);
    }
    std::vector<std::pair<std::string, std::shared_ptr<Node>>> moving;
    std::erase_if(m_nodes, [&](const auto& node) {
        const bool moves = node.first == from || node.first.starts_with(from + "/");
        if (moves) {
            moving.emplace_back(to + node.first.substr(from.size()), node.second);
        }
        return moves;
    });
    m_nodes.insert(moving.begin(), moving.end());
    changed();
}

void ArchiveModel::openForReading(const std::string& path) {
    openWorking(m_nodes.at(path));
}

void ArchiveModel::openForWriting(const std::string& path, const Options& options) {
    auto& node = m_nodes[path];
    const bool isNew = node == nullptr;
    if (isNew) {
        node = std::make_shared<Node>();
    }
    auto& stream = openWorking(node);
    stream.canWrite = true;
    stream.canRead = options.access == StreamAccess::ReadWrite;
    stream.appends = options.positioning == StreamPositioning::Append;
    if (!node->changed) {
        node->changed = stream.working;
        node->isNew = isNew;
        node->wasClosed = false;
        node->writers = 0;
    } else if (node->wasClosed && node->writers == 0) {
        node->closed = std::make_shared<std::string>(*node->changed);
    }
    ++node->writers;
    ++m_writers;
    if (options.truncation == StreamTruncation::Truncate) {
        stream.working->clear();
    }
}

void ArchiveModel::write(Stream& stream, std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    auto& working = *stream.working;
    if (stream.appends) {
        stream.position = working.size();
    }
    working.resize(std::max(working.size(), stream.position + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), working.begin() + static_cast<std::ptrdiff_t>(stream.position));
    stream.position += bytes.size();
}

void ArchiveModel::close(std::list<Stream>::iterator stream) {
    const bool wrote = stream->canWrite;
    if (wrote) {
        stream->node->wasClosed = true;
        stream->node->closed.reset();
        --stream->node->writers;
    }
    m_streams.erase(stream);
    if (wrote) {
        --m_writers;
        changed();
    }
}

void ArchiveModel::abandon(std::list<Stream>::iterator stream) {
    const auto node = stream->node;
    const bool wrote = stream->canWrite;
    m_streams.erase(stream);
    if (!wrote) {
        return;
    }
    --m_writers;
    if (--node->writers == 0 && !node->wasClosed && !node->isGone) {
        node->changed.reset();
        node->working.reset();
        if (node->isNew) {
            std::erase_if(m_nodes, [&](const auto& other) { return other.second == node; });
        }
    } else if (node->writers == 0 && node->closed) {
        node->working = node->closed;
        node->changed = std::exchange(node->closed, nullptr);
    }
    changed();
}

std::string ArchiveModel::parentOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

auto ArchiveModel::openWorking(const std::shared_ptr<Node>& node) -> Stream& {
    auto working = node->working.lock();
    if (!working) {
        working = std::make_shared<std::string>(node->saved);
        node->working = working;
    }
    return m_streams.emplace_back(Stream{node, std::move(working)});
}

/// With no stream open for writing, a change is saved at once.
void ArchiveModel::changed() {
    if (m_writers > 0) {
        return;
    }
    for (const auto& [path, node] : m_nodes) {
        node->wasWritten |= node->isUnsaved;
        if (node->changed) {
            node->saved = *node->changed;
            node->changed.reset();
            node->closed.reset();
            node->wasWritten = true;
        }
        node->isUnsaved = false;
    }
}

void ArchiveModel::takeTimes(std::uint64_t rebuilds) {
    for (const auto& [path, node] : m_nodes) {
        if (node->wasWritten) {
            node->stamp = localTimeOf(node->isFolder ? node->stamp : m_now);
            node->wasWritten = false;
        } else {
            for (std::uint64_t i = 0; i < rebuilds; ++i) {
                node->stamp = localTimeOf(node->stamp);
            }
        }
    }
}

} // namespace kx::test
