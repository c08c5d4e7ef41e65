#include "support.h"

#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/zipprovider/src/MiniZipWriteHandle.h>
#include <storage/zipprovider/src/ZipEntrySink.h>

#include <fl/i18n/utf8.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <unistd.h>

namespace kx::bench {

namespace {

using namespace foundation::storage::provider;
using namespace storage::zipprovider;

std::filesystem::path newPath() {
    static int number = 0;
    return std::filesystem::temp_directory_path() /
           ("kx-bench-" + std::to_string(::getpid()) + "-" + std::to_string(number++) + ".zip");
}

StorageItem itemAt(const std::filesystem::path& path) {
    storage::fileprovider::LocalFileOptions options;
    options.sync = false;
    return {storage::fileprovider::LocalFileProvider::create(options),
            StorageIRI::fromLocalPath(fl::i18n::fromUtf8(path.string()))};
}

void writeArchive(const std::filesystem::path& path, std::size_t count, std::size_t size) {
    MiniZipWriteHandle archive(path);
    const boost::posix_time::ptime time(boost::gregorian::date(2024, 1, 1));
    std::string contents(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        contents[i] = static_cast<char>('a' + (i * i + i / 7) % 26);
    }
    for (std::size_t i = 0; i < count; ++i) {
        ZipEntrySink sink(archive,
                          {ZipEntryType::File, ZipEntryPath(fl::i18n::fromUtf8(nameOf(i))), size, time, i});
        sink.write(contents.data(), static_cast<std::int64_t>(contents.size()));
    }
    archive.close();
}

} // namespace

std::string nameOf(std::size_t number) {
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "folder%05zu/some-file-%02zu.txt", number / 100, number % 100);
    return name.data();
}

ZipEntryPath pathOf(std::size_t number) {
    return ZipEntryPath(fl::i18n::fromUtf8("/" + nameOf(number)));
}

LocalArchive::LocalArchive(std::size_t count, std::size_t size) : m_path(newPath()), m_item(itemAt(m_path)) {
    writeArchive(m_path, count, size);
}

LocalArchive::~LocalArchive() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

} // namespace kx::bench
