#include <storage/mount/src/RescueList.h>

#include <storage/mount/src/SystemFailure.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>

namespace storage::mount {

using foundation::core::MutexLock;
namespace fs = std::filesystem;

namespace {

class Comparison {
public:
    Comparison(Tree& tree, const Backing& onDisk, const std::set<std::string, std::less<>>& gone)
        : m_tree(tree), m_onDisk(onDisk), m_gone(gone) {}

    void compare(const std::string& folder, const Node* shown) {
        for (const auto entries = m_onDisk.provider->listAll(m_onDisk.at(folder)); entries->hasNext();) {
            entries->next();
            const auto entry = entries->current();
            const auto name = fl::i18n::toUtf8(entry.getName());
            const auto path = folder + "/" + name;
            const auto node = shown ? childOf(*shown, name, entry.isFolder()) : nullptr;
            if (!node && isGone(path))
                found.push_back(path);
            else if (entry.isFolder() && !(node && !node->loaded))
                compare(path, node.get());
        }
    }

    std::vector<std::string> found;

private:
    NodePtr childOf(const Node& folder, std::string_view name, bool isFolder) const {
        const MutexLock lock(m_tree.mutex);
        auto node = Tree::child(folder, name);
        return node && !node->isView && node->folder == isFolder ? node : nullptr;
    }

    bool isGone(std::string_view path) const {
        for (auto end = path.size(); end != std::string_view::npos && end > 0; end = path.rfind('/', end - 1))
            if (m_gone.contains(path.substr(0, end)))
                return true;
        return false;
    }

    Tree& m_tree;
    const Backing& m_onDisk;
    const std::set<std::string, std::less<>>& m_gone;
};

/// One word of a list of changes; absent for what does not fit into a line.
std::optional<std::string> word(const std::string& text) {
    if (text.find('\n') != std::string::npos)
        return std::nullopt;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

} // namespace

std::vector<std::string> entriesGone(Tree& tree, const Backing& onDisk,
                                     const std::set<std::string, std::less<>>& gone) {
    Comparison comparison(tree, onDisk, gone);
    comparison.compare({}, tree.root().get());
    return std::move(comparison.found);
}

void writeRescueList(const fs::path& file, const fs::path& archive, const fs::path& rescued,
                     const std::vector<std::string>& entries) {
    errno = 0;
    std::ofstream out(file, std::ios::binary);
    out << "# What could not be saved while the archive was mounted. This brings it there:\n"
        << fmt::format("# kxvfs batch {} {}\n", word(archive.string()).value_or("ARCHIVE"),
                       word(file.string()).value_or("THIS-FILE"));
    for (const auto& path : entries) {
        if (const auto quoted = word(path))
            out << "rm -r " << *quoted << '\n';
        else
            out << "# to be removed by other means, since its name has more than one line: "
                << fl::i18n::toUtf8(fl::i18n::fromUtf8(path.substr(0, path.find('\n')))) << "...\n";
    }
    if (!rescued.empty())
        out << "cp -r -T " << word(rescued.string() + "/").value_or("'RESCUED'") << " /\n";
    out.close();
    if (!out)
        failWith(errno != 0 ? errno : EIO);
}

} // namespace storage::mount
