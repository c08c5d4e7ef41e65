#include "LocalArchive.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/StorageItem.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>

namespace kx::test {

using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::StorageItem;

namespace {

StorageIRI locationOf(const std::filesystem::path& file) {
    return StorageIRI::fromLocalPath(std::filesystem::absolute(file).generic_u16string());
}

} // namespace

std::shared_ptr<IProvider> openArchive(const std::filesystem::path& file) {
    const StorageItem container(storage::fileprovider::LocalFileProvider::create(), locationOf(file));
    return storage::zipprovider::ZipProviderFactory().createProvider(container);
}

StorageIRI archiveRoot(const std::filesystem::path& file) {
    return StorageIRI::inContainer("zip", locationOf(file), u"/");
}

LocalArchive::LocalArchive() {
    std::string folder = (std::filesystem::temp_directory_path() / "kx-archive-XXXXXX").string();
    if (!mkdtemp(folder.data()))
        throw std::system_error(errno, std::generic_category(), "cannot make folder " + folder);
    m_folder = folder;
    m_file = m_folder / "archive.zip";
}

LocalArchive::LocalArchive(const ArchiveBuilder& builder) : LocalArchive() {
    builder.writeFile(m_file);
    open();
}

LocalArchive::LocalArchive(const std::string& bytes) : LocalArchive() {
    std::ofstream(m_file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    open();
}

LocalArchive::~LocalArchive() {
    m_provider.reset();
    unsetenv("TMPDIR");
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

void LocalArchive::open() {
    setenv("TMPDIR", m_folder.c_str(), 1);
    m_provider = openArchive(m_file);
}

StorageIRI LocalArchive::at(const std::string& path) const {
    return archiveRoot(m_file).withPath(u"/" + fl::i18n::fromUtf8(path));
}

std::string LocalArchive::read(const std::string& path) {
    const auto stream = m_provider->openReadStream(at(path));
    std::string text;
    std::array<char, 4096> buffer;
    while (const std::int64_t count = stream->read(buffer.data(), buffer.size()))
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return text;
}

} // namespace kx::test
