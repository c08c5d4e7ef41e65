#include "MountedZip.h"

#include <fl/i18n/utf8.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <utility>

namespace kx::test {

using namespace foundation::storage::provider;

MountedZip::MountedZip(StorageItem container) : m_container(std::move(container)) {
    remount();
}

void MountedZip::remount() {
    m_provider.reset();
    m_provider = storage::zipprovider::ZipProviderFactory().createProvider(m_container);
}

StorageIRI MountedZip::at(std::string_view path) const {
    return StorageIRI::inContainer("zip", m_container.getLocation(), fl::i18n::fromUtf8(path));
}

StorageItem MountedZip::item(std::string_view path) {
    return {m_provider, at(path)};
}

std::unique_ptr<ByteStream> MountedZip::reader(std::string_view path) {
    return m_provider->openReadStream(at(path));
}

std::unique_ptr<ByteStream> MountedZip::writer(std::string_view path, const ByteStreamOpenOptions& options) {
    return m_provider->openStream(at(path), options);
}

std::string MountedZip::read(std::string_view path) {
    return readAll(*reader(path));
}

void MountedZip::write(std::string_view path, std::string_view bytes) {
    const auto stream = writer(path);
    writeAll(*stream, bytes);
    stream->close();
}

void MountedZip::append(std::string_view path, std::string_view bytes) {
    const auto stream = writer(path, ByteStreamOpenOptions::append());
    writeAll(*stream, bytes);
    stream->close();
}

std::uint64_t MountedZip::size(std::string_view path) {
    return m_provider->getFileAttributes(at(path)).getSize().value();
}

std::vector<std::string> MountedZip::list(std::string_view folder) {
    std::vector<std::string> names;
    for (const auto entries = m_provider->listAll(at(folder)); entries->hasNext();) {
        entries->next();
        const auto entry = entries->current();
        names.push_back(fl::i18n::toUtf8(entry.getName()) + (entry.isFolder() ? "/" : ""));
    }
    return names;
}

Contents MountedZip::tree() {
    Contents contents;
    addTree("/", contents);
    return contents;
}

void MountedZip::addTree(const std::string& folder, Contents& contents) {
    for (const auto& name : list(folder)) {
        const auto path = folder + name;
        if (name.ends_with('/')) {
            contents[path.substr(1)];
            EXPECT_TRUE(isFolder(path)) << path;
            EXPECT_FALSE(isFile(path)) << path;
            addTree(path, contents);
        } else {
            auto& bytes = contents[path.substr(1)] = read(path);
            EXPECT_TRUE(isFile(path)) << path;
            EXPECT_FALSE(isFolder(path)) << path;
            EXPECT_EQ(size(path), bytes.size()) << path;
        }
    }
}

} // namespace kx::test
