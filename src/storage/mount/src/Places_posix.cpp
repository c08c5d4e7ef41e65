#include <storage/mount/src/Places.h>

#include <storage/mount/src/SystemFailure.h>

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace storage::mount {

namespace fs = std::filesystem;

namespace {

constexpr auto temporaryVariable = "TMPDIR";

fs::path absoluteVariable(const char* name) {
    const char* const value = std::getenv(name);
    return value && value[0] == '/' ? fs::path(value) : fs::path();
}

} // namespace

fs::path stateFolder() {
    if (const auto state = absoluteVariable("XDG_STATE_HOME"); !state.empty())
        return state / "kxvfs";
    if (const auto home = absoluteVariable("HOME"); !home.empty())
        return home / ".local" / "state" / "kxvfs";
    return {};
}

fs::path runtimeFolder() {
    const auto runtime = absoluteVariable("XDG_RUNTIME_DIR");
    return runtime.empty() ? fs::path() : runtime / "kxvfs";
}

TemporaryFolderInUse::TemporaryFolderInUse(const fs::path& parent) {
    if (const char* const before = std::getenv(temporaryVariable)) {
        m_before = before;
        m_hadBefore = true;
    }
    auto name = (parent / ".kxvfs-rescue-XXXXXX").string();
    if (!mkdtemp(name.data()))
        failWith(errno, "cannot make a temporary folder in " + parent.string());
    m_folder = name;
    setenv(temporaryVariable, name.c_str(), 1);
}

TemporaryFolderInUse::~TemporaryFolderInUse() {
    if (m_hadBefore)
        setenv(temporaryVariable, m_before.c_str(), 1);
    else
        unsetenv(temporaryVariable);
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

} // namespace storage::mount
