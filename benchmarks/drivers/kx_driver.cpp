// What the comparison does with this system inside one process: changes that are each saved before the next.
//
// usage: kx_driver [--no-sync] commits ARCHIVE FOLDER COUNT
//        kx_driver [--no-sync] add ARCHIVE NAME FILE
//        kx_driver [--no-sync] read ARCHIVE NAMES-FILE
//
// With --no-sync, saves do not wait for the storage medium, as those of the other programs do not.

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/vfs/Vfs.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using storage::vfs::Vfs;

Vfs::Options optionsFor(bool sync) {
    storage::fileprovider::LocalFileOptions local;
    local.sync = sync;
    Vfs::Options options;
    options.localFiles = storage::fileprovider::LocalFileProvider::create(local);
    return options;
}

/// An archive, opened or made.
class Archive {
public:
    Archive(bool sync, const std::string& path)
        : m_vfs(optionsFor(sync)), m_container(StorageIRI::fromLocalPath(
                                       fl::i18n::fromUtf8(std::filesystem::absolute(path).string()))) {
        if (!std::filesystem::exists(path)) {
            m_vfs.createArchive(m_container);
        }
        m_provider = m_vfs.mount(at("")).provider;
    }

    void add(const std::string& name, const std::string& file) {
        std::ifstream in(file, std::ios_base::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        if (!in) {
            throw std::runtime_error("cannot read " + file);
        }
        if (!m_provider->isFolder(at(name).parent())) {
            m_provider->createFolder(at(name).parent());
        }
        const auto out = m_provider->openStream(at(name), ByteStreamOpenOptions::overwrite());
        out->write(bytes.data(), static_cast<std::int64_t>(bytes.size()));
        out->close();
    }

    void print(const std::string& name) {
        const auto in = m_provider->openReadStream(at(name));
        while (const auto count = in->read(m_buffer.data(), static_cast<std::int64_t>(m_buffer.size()))) {
            std::fwrite(m_buffer.data(), 1, static_cast<std::size_t>(count), stdout);
        }
        in->close();
    }

private:
    StorageIRI at(const std::string& name) const {
        return StorageIRI::inContainer("zip", m_container, u"/" + fl::i18n::fromUtf8(name));
    }

    Vfs m_vfs;
    StorageIRI m_container;
    std::shared_ptr<IProvider> m_provider;
    std::vector<char> m_buffer = std::vector<char>(256 * 1024);
};

void run(std::vector<std::string> arguments) {
    const bool sync = arguments.empty() || arguments.front() != "--no-sync";
    arguments.erase(arguments.begin(), arguments.begin() + (sync ? 0 : 1));
    if (arguments.size() < 3) {
        throw std::invalid_argument("usage: kx_driver [--no-sync] ACTION ARCHIVE ARGUMENT...");
    }
    const auto& action = arguments[0];
    Archive archive(sync, arguments[1]);
    if (action == "commits" && arguments.size() == 4) {
        std::ifstream list(arguments[2] + "-paths.txt");
        int left = std::stoi(arguments[3]);
        for (std::string name; left-- > 0 && std::getline(list, name);) {
            archive.add(name, arguments[2] + "/" + name);
        }
    } else if (action == "add" && arguments.size() == 4) {
        archive.add(arguments[2], arguments[3]);
    } else if (action == "read") {
        std::ifstream list(arguments[2]);
        for (std::string name; std::getline(list, name);) {
            archive.print(name);
        }
    } else {
        throw std::invalid_argument("no such action: " + action);
    }
}

} // namespace

int main(int count, char** arguments) {
    try {
        run({arguments + 1, arguments + count});
        return std::fflush(stdout) == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "kx_driver: " << error.what() << '\n';
        return 1;
    }
}
