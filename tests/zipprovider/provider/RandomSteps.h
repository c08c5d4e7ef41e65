#pragma once

#include "ArchiveModel.h"

#include <cstdint>
#include <iosfwd>
#include <random>
#include <string>

namespace kx::test {

/// One step of a random run, complete in itself, so that a run can be repeated with steps left out.
struct Step {
    enum class Kind {
        CreateFile,
        CreateFolder,
        RemoveFile,
        RemoveFolder,
        MoveFile,
        MoveFolder,
        CopyFile,
        WriteFile,
        AppendToFile,
        OpenForReading,
        OpenForWriting,
        ReadStream,
        WriteStream,
        CloseStream,
        AbandonStream,
        Remount,
    };

    Kind kind;
    std::string path = "/";
    std::string to = "/";
    std::uint32_t option = 0;
    /// Which of the open streams; counted round.
    std::size_t stream = 0;
    std::size_t position = 0;
    std::string bytes = {};
    /// The call on the container that fails during the step, 0 for none; and whether all later ones do.
    std::uint64_t failingCall = 0;
    bool failsOn = false;
};

std::ostream& operator<<(std::ostream& out, const Step& step);

/// The options that a step's number stands for.
ArchiveModel::Options optionsOf(const Step& step);

/// A step that is likely to make sense for the archive as it is.
Step randomStep(std::mt19937& random, ArchiveModel& model, bool withFailures);

} // namespace kx::test
