// append_manifest LIBRARY MANIFEST SYMBOLIC_NAME: puts a ZIP archive with the one entry
// SYMBOLIC_NAME/manifest.json behind the last byte of LIBRARY. The archive depends on nothing but MANIFEST
// and the name, so that the same sources build the same library: an archiver would add the times and the
// owner of the file.

#include <minizip/zip.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

[[noreturn]] void fail(const std::string& action, const std::string& cause) {
    throw std::runtime_error("cannot " + action + ": " + cause);
}

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad())
        fail("read " + path, std::generic_category().message(errno));
    return content;
}

void writeArchive(const std::string& path, const std::string& entryName, const std::string& content) {
    const zipFile archive = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
    if (!archive)
        fail("write " + path, std::generic_category().message(errno));
    zip_fileinfo info{};
    info.tmz_date.tm_year = 1980;
    info.tmz_date.tm_mday = 1;
    const bool written =
        zipOpenNewFileInZip(archive, entryName.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                            Z_BEST_COMPRESSION) == ZIP_OK &&
        zipWriteInFileInZip(archive, content.data(), static_cast<unsigned>(content.size())) == ZIP_OK &&
        zipCloseFileInZip(archive) == ZIP_OK;
    if (zipClose(archive, nullptr) != ZIP_OK || !written)
        fail("write " + path, "the archive could not be completed");
}

void append(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::app);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        fail("append to " + path, std::generic_category().message(errno));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: append_manifest LIBRARY MANIFEST SYMBOLIC_NAME\n", stderr);
        return 2;
    }
    try {
        const std::string library = argv[1];
        const std::string archive = library + ".manifest.zip";
        writeArchive(archive, std::string(argv[3]) + "/manifest.json", readAll(argv[2]));
        append(library, readAll(archive));
        std::filesystem::remove(archive);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "append_manifest: %s\n", error.what());
        return 1;
    }
}
