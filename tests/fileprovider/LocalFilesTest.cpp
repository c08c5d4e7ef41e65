#include "LocalFilesTest.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace kx::test {

namespace fs = std::filesystem;

std::string slurp(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

void spit(const fs::path& path, std::string_view bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    EXPECT_TRUE(stream.good()) << path;
}

std::string accessControlListFor(std::uint32_t user) {
    // Version 2, then entries of tag, permissions and id, as the system stores them (see acl(5)).
    std::string list("\x02\0\0\0", 4);
    const auto entry = [&](unsigned tag, unsigned permissions, std::uint32_t id) {
        for (const std::uint64_t part :
             {std::uint64_t{tag} | std::uint64_t{permissions} << 16 | std::uint64_t{id} << 32}) {
            for (unsigned shift = 0; shift < 64; shift += 8) {
                list += static_cast<char>(part >> shift & 0xFFU);
            }
        }
    };
    constexpr std::uint32_t none = 0xFFFFFFFFU;
    entry(0x01, 6, none);
    entry(0x02, 4, user);
    entry(0x04, 4, none);
    entry(0x10, 4, none);
    entry(0x20, 0, none);
    return list;
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> workingFilesIn(const fs::path& folder) {
    auto names = namesIn(folder);
    const auto isOrdinary = [](const std::string& name) { return name.find(".kxvfs-") == std::string::npos; };
    names.erase(std::remove_if(names.begin(), names.end(), isOrdinary), names.end());
    return names;
}

LocalFilesTest::LocalFilesTest() : m_files(LocalFileProvider::create(options())) {}

LocalFileOptions LocalFilesTest::options(std::shared_ptr<storage::fileprovider::SystemCalls> calls) const {
    LocalFileOptions options;
    options.stateFolder = m_state.path().string();
    // Waiting for the medium proves nothing where no power fails.
    options.sync = calls != nullptr;
    options.systemCalls = std::move(calls);
    return options;
}

void LocalFilesTest::save(std::string_view name, std::string_view bytes, const ByteStreamOpenOptions& how) {
    writeFile(files(), iri(name), bytes, how);
}

std::string LocalFilesTest::read(std::string_view name) {
    return readFile(files(), iri(name));
}

RecoveryOutcome LocalFilesTest::recover(std::string_view name) {
    return storage::fileprovider::recoverFile(iri(name), options()).outcome;
}

void LocalFilesTest::expectNothingLeft(foundation::core::SourceLocation place) {
    const testing::ScopedTrace trace(place.file(), static_cast<int>(place.line()),
                                     "expected no working files");
    EXPECT_EQ(workingFilesIn(folder()), std::vector<std::string>());
    EXPECT_EQ(namesIn(stateFolder()), std::vector<std::string>());
}

std::string LocalFilesTest::expectError(ErrorCode code, const std::function<void()>& operation,
                                        foundation::core::SourceLocation place) {
    const testing::ScopedTrace trace(place.file(), static_cast<int>(place.line()), "expected error");
    try {
        operation();
    } catch (const Exception& error) {
        EXPECT_EQ(error.getErrorCode(), code) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

} // namespace kx::test
