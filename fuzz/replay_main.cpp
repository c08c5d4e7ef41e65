#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    // Named first, so that a crash tells which input it was.
    std::cout << file.filename().string() << ' ' << bytes.size() << std::endl;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::vector<std::filesystem::path> inputs(const std::filesystem::path& place) {
    if (!std::filesystem::is_directory(place))
        return {place};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(place))
        files.push_back(entry.path());
    return files;
}

} // namespace

/// Runs a fuzz target over files, or over all files of folders.
int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::filesystem::path& file : inputs(argv[i])) {
            replay(file);
            ++count;
        }
    }
    std::cout << count << " inputs\n";
    // A corpus that has gone missing must not look like one that passes.
    return count == 0 ? 1 : 0;
}
