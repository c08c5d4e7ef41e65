// Covers everything that changes an archive: the input is a list of changes, made through the provider and in
// a plain model of a tree. What the provider shows, and what libarchive reads in the archive that it has
// saved, has to be the model's tree.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>
#include <support/InMemoryProvider.h>
#include <support/archives/IndependentArchive.h>
#include <support/contents.h>

namespace {

using namespace foundation::storage::provider;

constexpr std::size_t operationLimit = 48;

/// Path to bytes; a folder's path ends in "/".
using Tree = std::map<std::string, std::string>;

void require(bool holds) {
    if (!holds)
        __builtin_trap();
}

class Run {
public:
    explicit Run(std::string_view input) : m_input(input) { m_memory->createFile(m_container.getLocation()); }

    void run() {
        for (std::size_t i = 0; i < operationLimit && !m_input.empty(); ++i)
            step(next());
        m_hold.reset();
        requireTree();
        m_provider.reset();
        requireArchive();
    }

private:
    unsigned next() {
        if (m_input.empty())
            return 0;
        const auto byte = static_cast<unsigned char>(m_input.front());
        m_input.remove_prefix(1);
        return byte;
    }

    /// One of few names, so that changes meet; with one that is no plain text.
    std::string path() {
        static const std::vector<std::string> names{"a", "b", "a.txt", "..", "\xc3\xa4 %!"};
        std::string path;
        const auto byte = next();
        for (unsigned depth = 0; depth <= byte % 3; ++depth)
            path += (depth == 0 ? "" : "/") + names[(byte >> (2 + 2 * depth)) % names.size()];
        return path;
    }

    std::string bytes() {
        const auto count = std::min<std::size_t>(next(), m_input.size());
        auto bytes = std::string(m_input.substr(0, count));
        m_input.remove_prefix(count);
        return bytes;
    }

    StorageIRI at(const std::string& path) const {
        return StorageIRI::inContainer("zip", m_container.getLocation(), fl::i18n::fromUtf8("/" + path));
    }

    /// Whether the tree would hold a file named like a folder above it: the index shows that folder as a file
    /// where the file stands first in the archive, which the model's tree cannot say.
    static bool isNamedLikeAFolderAbove(const std::string& file) {
        const auto name = file.substr(file.rfind('/') + 1);
        const auto above = '/' + file.substr(0, file.size() - name.size());
        return above.find('/' + name + '/') != std::string::npos;
    }

    void step(unsigned kind) {
        const auto one = path();
        try {
            switch (kind % 8) {
            case 0:
                return write(one, ByteStreamOpenOptions::overwrite(), {});
            case 1:
                return write(one, ByteStreamOpenOptions::append(), m_tree.contains(one) ? m_tree[one] : "");
            case 2:
                m_provider->createFolder(at(one));
                m_tree[one + '/'];
                return;
            case 3:
                m_provider->removeFile(at(one));
                require(m_tree.erase(one) == 1);
                return;
            case 4:
                m_provider->removeFolder(at(one));
                require(m_tree.erase(one + '/') == 1);
                return;
            case 5:
                return move(one, path(), false, (kind & 8) != 0);
            case 6:
                return move(one, path(), true, (kind & 8) != 0);
            default:
                return holdOrSave();
            }
        } catch (const Exception&) {
            // A change that is refused changes nothing.
        }
    }

    void write(const std::string& path, const ByteStreamOpenOptions& options, std::string before) {
        if (isNamedLikeAFolderAbove(path))
            return;
        const auto stream = m_provider->openStream(at(path), options);
        const auto more = bytes();
        kx::test::writeAll(*stream, more);
        stream->close();
        m_tree[path] = before + more;
    }

    void move(const std::string& from, const std::string& to, bool folder, bool replaces) {
        Tree moved;
        Tree left;
        for (const auto& [name, bytes] : m_tree) {
            if (folder ? name.starts_with(from + '/') : name == from)
                moved[to + name.substr(from.size())] = bytes;
            else if (name != to)
                left[name] = bytes;
        }
        for (const auto& [name, bytes] : moved) {
            if (!name.ends_with('/') && isNamedLikeAFolderAbove(name))
                return;
        }
        const auto option = replaces ? MoveOption::ReplaceExisting : MoveOption::FailIfExists;
        folder ? m_provider->moveFolder(at(from), at(to), option)
               : m_provider->moveFile(at(from), at(to), option);
        if (from == to)
            return;
        m_tree = std::move(left);
        m_tree.merge(moved);
    }

    /// With a stream open nothing is saved until it goes.
    void holdOrSave() {
        if (!m_hold) {
            m_hold = m_provider->openStream(at("held"), ByteStreamOpenOptions::overwrite());
            return;
        }
        m_hold.reset();
        requireTree();
        requireArchive();
    }

    void requireTree() {
        Tree shown;
        const auto root = at("");
        for (const auto entries = m_provider->listAllRecursive(root); entries->hasNext();) {
            entries->next();
            const auto entry = entries->current();
            const auto name = fl::i18n::toUtf8(entry.getName());
            if (entry.isFolder())
                shown[name + '/'];
            else
                shown[name] = kx::test::readFile(*m_provider, at(name));
        }
        require(shown == m_tree);
    }

    void requireArchive() {
        const auto archive = kx::test::readFile(*m_memory, m_container.getLocation());
        auto stored = kx::test::readIndependently(archive);
        for (const auto& [name, bytes] : m_tree) {
            const auto below = m_tree.upper_bound(name);
            const bool implied =
                name.ends_with('/') && below != m_tree.end() && below->first.starts_with(name);
            const auto entry = stored.find(name);
            require(entry != stored.end() ? entry->second == bytes : implied);
            if (entry != stored.end())
                stored.erase(entry);
        }
        require(stored.empty());
    }

    std::string_view m_input;
    const std::shared_ptr<kx::test::InMemoryProvider> m_memory =
        std::make_shared<kx::test::InMemoryProvider>();
    const StorageItem m_container{m_memory, StorageIRI::parse("mem:///plans.zip")};
    std::shared_ptr<IProvider> m_provider =
        storage::zipprovider::ZipProviderFactory().createProvider(m_container);
    std::unique_ptr<ByteStream> m_hold;
    Tree m_tree;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Run({reinterpret_cast<const char*>(data), size}).run();
    return 0;
}
