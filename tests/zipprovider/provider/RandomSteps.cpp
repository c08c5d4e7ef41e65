#include "RandomSteps.h"

#include <support/contents.h>

#include <array>
#include <iterator>
#include <ostream>

namespace kx::test {

using namespace foundation::storage::provider;

namespace {

using Kind = Step::Kind;

struct Weight {
    Kind kind;
    const char* name;
    unsigned weight;
};

constexpr std::array weights{
    Weight{Kind::CreateFile, "create file", 4},
    Weight{Kind::CreateFolder, "create folder", 8},
    Weight{Kind::RemoveFile, "remove file", 5},
    Weight{Kind::RemoveFolder, "remove folder", 4},
    Weight{Kind::MoveFile, "move file", 10},
    Weight{Kind::MoveFolder, "move folder", 8},
    Weight{Kind::CopyFile, "copy file", 4},
    Weight{Kind::WriteFile, "write file", 10},
    Weight{Kind::AppendToFile, "append to file", 6},
    Weight{Kind::OpenForReading, "open for reading", 5},
    Weight{Kind::OpenForWriting, "open for writing", 9},
    Weight{Kind::ReadStream, "read stream", 6},
    Weight{Kind::WriteStream, "write stream", 14},
    Weight{Kind::CloseStream, "close stream", 14},
    Weight{Kind::AbandonStream, "abandon stream", 6},
    Weight{Kind::Remount, "remount", 2},
};

std::uint32_t below(std::mt19937& random, std::size_t limit) {
    return static_cast<std::uint32_t>(random() % limit);
}

Kind randomKind(std::mt19937& random) {
    unsigned total = 0;
    for (const auto& weight : weights) {
        total += weight.weight;
    }
    auto ticket = below(random, total);
    for (const auto& weight : weights) {
        if (ticket < weight.weight) {
            return weight.kind;
        }
        ticket -= weight.weight;
    }
    return Kind::Remount;
}

/// Few names, so that paths meet; among them some that sort in front of a slash.
std::string randomPath(std::mt19937& random, const ArchiveModel& model) {
    constexpr std::array<const char*, 7> names{"a", "b", "a-b", "a.txt", "c", "\xC3\xBC", "B b"};
    const auto& nodes = model.nodes();
    const auto any = std::next(nodes.begin(), below(random, nodes.size()));
    if (below(random, 10) < 6) {
        return any->first;
    }
    const auto folder = any->second->isFolder ? any->first : std::string("/");
    return (folder == "/" ? folder : folder + "/") + names[below(random, names.size())];
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Step& step) {
    for (const auto& weight : weights) {
        if (weight.kind == step.kind) {
            out << weight.name;
        }
    }
    out << ' ' << step.path << " to=" << step.to << " option=" << step.option << " stream=" << step.stream
        << " position=" << step.position << " bytes=" << step.bytes.size();
    if (step.failingCall != 0) {
        out << " failing call " << step.failingCall << (step.failsOn ? " and later ones" : "");
    }
    return out;
}

ArchiveModel::Options optionsOf(const Step& step) {
    ByteStreamOpenOptions options;
    options.access = (step.option & 1) != 0 ? StreamAccess::ReadWrite : StreamAccess::Write;
    options.disposition =
        (step.option & 2) != 0 ? StreamDisposition::OpenExisting : StreamDisposition::OpenOrCreate;
    switch (step.option >> 2) {
    case 0:
        break;
    case 1:
        options.truncation = StreamTruncation::Keep;
        break;
    default:
        options.truncation = StreamTruncation::Keep;
        options.positioning = StreamPositioning::Append;
    }
    return options;
}

Step randomStep(std::mt19937& random, ArchiveModel& model, bool withFailures) {
    Step step{randomKind(random)};
    // Neither too many entries nor too many streams, or the run gets slow without getting better.
    if (model.nodes().size() > 25 && (step.kind == Kind::CreateFile || step.kind == Kind::CreateFolder)) {
        step.kind = Kind::RemoveFile;
    }
    if (model.streams().size() > 6 &&
        (step.kind == Kind::OpenForReading || step.kind == Kind::OpenForWriting)) {
        step.kind = Kind::CloseStream;
    }
    step.path = randomPath(random, model);
    step.to = randomPath(random, model);
    step.option = below(random, 12);
    step.stream = below(random, 8);
    step.position = below(random, 3000);
    constexpr std::array<std::size_t, 6> sizes{0, 1, 7, 100, 5000, 40000};
    const auto size = sizes[below(random, sizes.size())];
    const auto seed = below(random, 1'000'000);
    step.bytes = below(random, 2) == 0 ? randomBytes(size, seed)
                                       : std::string(size, static_cast<char>('a' + seed % 26));
    if (withFailures && below(random, 12) == 0) {
        step.failingCall = 1 + below(random, 80);
        step.failsOn = below(random, 2) == 0;
    }
    return step;
}

} // namespace kx::test
