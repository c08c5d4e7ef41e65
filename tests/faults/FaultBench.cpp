#include "FaultBench.h"

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/SystemCalls.h>
#include <support/archives/ArchiveBuilder.h>
#include <support/contents.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace kx::test {

namespace fs = std::filesystem;
using storage::fileprovider::LocalFileProvider;

namespace {

constexpr const char* archiveName = "plans.zip";
constexpr const char* linkName = "link.zip";

std::size_t openFiles() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string slurp(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void spit(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}

std::string archiveOf(const Contents& contents) {
    return simpleArchive({contents.begin(), contents.end()});
}

/// What independent readers find wrong with an archive that shows this tree. A folder that holds something
/// may be stored or only be implied.
std::string problemsOf(const std::string& archive, const Contents& tree) {
    const auto names = storedNames(archive);
    auto expected = tree;
    std::erase_if(expected, [&](const auto& entry) {
        const auto next = tree.upper_bound(entry.first);
        const bool holds = next != tree.end() && next->first.starts_with(entry.first);
        return entry.first.ends_with('/') && holds &&
               std::find(names.begin(), names.end(), entry.first) == names.end();
    });
    return archiveProblems(archive, expected);
}

std::shared_ptr<LocalFileProvider> makeFiles(const TemporaryFolder& state,
                                             std::shared_ptr<storage::fileprovider::SystemCalls> calls) {
    storage::fileprovider::LocalFileOptions options;
    options.stateFolder = state.path().string();
    options.systemCalls = std::move(calls);
    return LocalFileProvider::create(options);
}

/// Whether the message is one of those that the log alone has the cause of.
bool isFixedText(const std::string& message) {
    const std::string_view text(message);
    return text.starts_with("Working entry ") || text.starts_with("Error while calling ") ||
           text.find("Problem getting last write time of zip file") != std::string_view::npos ||
           // A code and a location, which is an entry's, and nothing behind it.
           (text.starts_with("local file system failed: zip:") &&
            text.find(": ", 26) == std::string_view::npos);
}

std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

/// A file system that may lack extended attributes, or refuse for a while to put a file in another's place.
class FaultBench::FileSystem final : public storage::fileprovider::SystemCalls {
public:
    explicit FileSystem(bool attributes) : m_attributes(attributes) {}

    void refuseRenames(bool refuse) { m_refusesRenames = refuse; }

    int setAttribute(int file, const char* name, const void* value, std::size_t size, int flags) override {
        return m_attributes ? SystemCalls::setAttribute(file, name, value, size, flags) : failing(ENOTSUP);
    }
    int removeAttribute(int file, const char* name) override {
        return m_attributes ? SystemCalls::removeAttribute(file, name) : failing(ENOTSUP);
    }
    int rename(const char* from, const char* to) override {
        return m_refusesRenames ? failing(EIO) : SystemCalls::rename(from, to);
    }

private:
    static int failing(int error) {
        errno = error;
        return -1;
    }

    const bool m_attributes;
    bool m_refusesRenames = false;
};

FaultBench::FaultBench(const Scenario& scenario)
    : m_scenario(scenario), m_fileSystem(std::make_shared<FileSystem>(scenario.attributes)),
      m_files(makeFiles(m_state, m_fileSystem)) {}

void FaultBench::reset() {
    putArchive();
    if (m_scenario.interruptedBy != nullptr) {
        interruptSave();
    }
}

/// The folders hold the archive of the beginning and nothing else.
void FaultBench::putArchive() {
    for (const auto* folder : {&m_folder, &m_state, &m_temporary}) {
        for (const auto& file : filesIn(folder->path())) {
            fs::remove_all(file);
        }
    }
    auto bytes = archiveOf(contentsBefore());
    if (m_scenario.home == Home::Nested) {
        bytes = simpleArchive({{"first", "1"}, {"inner.zip", bytes}, {"last/", ""}});
    }
    spit(m_folder.file(archiveName), bytes);
    if (m_scenario.home == Home::Overwritten) {
        fs::create_hard_link(m_folder.file(archiveName), m_folder.file(linkName));
    }
}

/// Has every call fail from a certain one on. Which one that is, is found once.
void FaultBench::interruptSave() {
    while (!savesUntil(m_interruption)) {
        if (InjectedFaults::failures() == 0) {
            throw std::logic_error("cannot interrupt the save there");
        }
        ++m_interruption;
        putArchive();
    }
}

/// Saves with every call failing from one on. Whether that was the one to interrupt the save by.
bool FaultBench::savesUntil(std::uint64_t call) {
    const auto bytes = archiveOf(m_scenario.interruptedSave);
    InjectedFaults::start({InjectedFaults::Subject::Files, InjectedFaults::Manner::FromThenOn, call, EIO});
    try {
        writeFile(*m_files, m_folder.iri(archiveName), bytes);
    } catch (const std::exception&) {
        // It is meant to fail.
    }
    InjectedFaults::stop();
    return std::string_view(InjectedFaults::firstFailure()) == m_scenario.interruptedBy &&
           fs::exists(m_folder.file(".plans.zip.kxvfs-journal"));
}

FaultBench::StorageItem FaultBench::container() const {
    const StorageItem file(m_files, m_folder.iri(archiveName));
    return m_scenario.home == Home::Nested ? MountedZip(file).item("/inner.zip") : file;
}

std::string FaultBench::run(const InjectedFaults::Plan& plan) {
    reset();
    const auto filesBefore = openFiles();
    std::ostringstream problems;
    {
        MountedZip zip(container());
        if (m_scenario.read) {
            zip.list();
        }
        const auto streams = begin(zip);
        problems << act(zip, plan);
        noteUnremovable(plan);
        problems << archiveProblemsAfterActing() << close(streams) << repeat(zip);
    }
    problems << leftoverProblems();
    if (openFiles() != filesBefore) {
        problems << "files are left open\n";
    }
    return problems.str();
}

Streams FaultBench::begin(MountedZip& zip) {
    if (m_scenario.beginning.act == nullptr) {
        return {};
    }
    m_fileSystem->refuseRenames(m_scenario.beginning.saveFails);
    auto streams = m_scenario.beginning.act(zip);
    m_fileSystem->refuseRenames(false);
    return streams;
}

/// Whether nothing is saved before the streams of the beginning are closed.
bool FaultBench::isHeld() const {
    return m_scenario.beginning.act != nullptr && !m_scenario.beginning.saveFails;
}

/// Files that the faults themselves have left over.
void FaultBench::noteUnremovable(const InjectedFaults::Plan& plan) {
    m_unremovable.clear();
    const bool nothingCouldBeRemoved = m_failures > 0 && plan.subject == InjectedFaults::Subject::Files &&
                                       plan.manner == InjectedFaults::Manner::FromThenOn;
    for (const auto& file : filesIn(m_temporary.path())) {
        if (nothingCouldBeRemoved || InjectedFaults::failedToRemove(file)) {
            m_unremovable.insert(file);
        }
    }
}

std::string FaultBench::archiveProblemsAfterActing() const {
    if (isHeld()) {
        return archiveFileProblems({contentsBefore()});
    }
    auto allowed = std::vector{m_scenario.after};
    if (m_reported && m_scenario.interruptedBy == nullptr) {
        allowed.push_back(contentsBefore());
    }
    if (m_scenario.beginning.saveFails && (m_reported || m_scenario.after == treeBefore())) {
        // What waited may have been saved by the end of a stream, or wait still: what only reads saves
        // nothing.
        allowed.insert(allowed.end(), {contentsBefore(), treeBefore()});
    }
    return archiveFileProblems(allowed);
}

std::string FaultBench::close(const Streams& streams) {
    try {
        for (const auto& stream : streams) {
            stream->close();
        }
        return {};
    } catch (const std::exception& failure) {
        return std::string("cannot close what was open: ") + failure.what() + "\n";
    }
}

/// What the provider shows when the faults begin.
const Contents& FaultBench::treeBefore() const {
    static const auto unchanged = contentsBefore();
    return m_scenario.beginning.act ? m_scenario.beginning.shows : unchanged;
}

std::string FaultBench::act(MountedZip& zip, const InjectedFaults::Plan& plan) {
    std::string message;
    m_reported = true;
    InjectedFaults::start(plan);
    try {
        m_scenario.act(zip);
        m_reported = false;
        InjectedFaults::stop();
    } catch (const std::exception& failure) {
        InjectedFaults::stop();
        message = failure.what();
    }
    m_count = InjectedFaults::count();
    m_failures = InjectedFaults::failures();
    return m_reported ? messageProblems(message, plan) : std::string();
}

std::string FaultBench::messageProblems(const std::string& message, const InjectedFaults::Plan& plan) const {
    const auto names = [&](std::string_view text) { return message.find(text) != std::string::npos; };
    if (m_failures == 0) {
        return "reported a failure where none was: " + message + "\n";
    }
    if (plan.subject == InjectedFaults::Subject::Memory && names("std::bad_alloc")) {
        return {};
    }
    std::string problems;
    const auto folders = {m_temporary.path().string(), m_state.path().string(), std::string(" /tmp")};
    if (!names(archiveName) && !names("Working entry /") &&
        std::none_of(folders.begin(), folders.end(), names)) {
        problems += "the message names no file: " + message + "\n";
    }
    const auto cause = std::generic_category().message(plan.error);
    if (plan.subject == InjectedFaults::Subject::Files && !names(cause.substr(1)) && !isFixedText(message)) {
        problems += "the message names no cause: " + message + "\n";
    }
    return problems;
}

/// What the caller does whose operation failed: looks what he has, and does it again if it is not there.
std::string FaultBench::repeat(MountedZip& zip) {
    std::string doing = "list";
    try {
        auto tree = zip.tree();
        if (isHeld()) {
            // What was open is closed, so the archive holds what is shown.
            if (const auto problems = archiveFileProblems({tree}); !problems.empty()) {
                return problems;
            }
        }
        if (tree != m_scenario.after) {
            if (!m_reported) {
                return "the provider does not show what it said was done\n";
            }
            if (tree != treeBefore()) {
                return "the provider shows neither the old tree nor the new\n";
            }
            doing = "do it again";
            m_scenario.act(zip);
        }
        doing = "save another change";
        zip.createFolder("/later");
        auto expected = m_scenario.after;
        expected["later/"];
        if (zip.tree() != expected) {
            return "the provider does not show the repeated operation\n";
        }
        return archiveFileProblems({expected});
    } catch (const std::exception& failure) {
        return "cannot " + doing + " without a fault: " + failure.what() + "\n";
    }
}

std::string FaultBench::archiveFileProblems(const std::vector<Contents>& allowed) const {
    try {
        const auto tree = treeOfArchive();
        return std::find(allowed.begin(), allowed.end(), tree) != allowed.end()
                   ? std::string()
                   : "the archive holds another tree than it may\n";
    } catch (const std::exception& failure) {
        return std::string("cannot read the archive: ") + failure.what() + "\n";
    }
}

/// What a provider shows of the archive that was made for it. Errors: also std::runtime_error when
/// independent readers find something wrong.
Contents FaultBench::treeOfArchive() const {
    // Most of the archives are the same, byte for byte, and independent readers are slow.
    static std::map<std::pair<Home, std::string>, Contents> known;
    const auto path = m_folder.file(archiveName);
    const auto whole = known.find({m_scenario.home, slurp(path)});
    if (whole != known.end() && workingFiles().empty()) {
        return whole->second;
    }
    auto tree = MountedZip(container()).tree();
    const auto bytes = slurp(path);
    const auto readBefore = known.find({m_scenario.home, bytes});
    if (readBefore != known.end()) {
        return readBefore->second == tree ? tree : throw std::runtime_error("it reads differently this time");
    }
    if (m_scenario.home != Home::Nested) {
        if (const auto problems = problemsOf(bytes, tree); !problems.empty()) {
            throw std::runtime_error(problems);
        }
    }
    known[{m_scenario.home, bytes}] = tree;
    return tree;
}

/// What saves have beside the archive or in the state folder.
std::vector<fs::path> FaultBench::workingFiles() const {
    std::vector<fs::path> files;
    for (const auto& folder : {m_folder.path(), m_state.path()}) {
        for (const auto& file : filesIn(folder)) {
            if (file.filename() != archiveName && file.filename() != linkName) {
                files.push_back(file);
            }
        }
    }
    return files;
}

std::string FaultBench::leftoverProblems() const {
    std::string problems;
    for (const auto& file : filesIn(m_temporary.path())) {
        if (!m_unremovable.contains(file)) {
            problems += "left " + file.string() + "\n";
        }
    }
    for (const auto& file : workingFiles()) {
        problems += "left " + file.string() + "\n";
    }
    return problems;
}

} // namespace kx::test
