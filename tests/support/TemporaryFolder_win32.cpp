#include "TemporaryFolder.h"

namespace kx::test {

std::filesystem::path TemporaryFolder::pathForRemoval(const std::filesystem::path& folder) {
    // Otherwise long paths and names that end in a blank are out of reach.
    return L"\\\\?\\" + std::filesystem::path(folder).make_preferred().native();
}

} // namespace kx::test
