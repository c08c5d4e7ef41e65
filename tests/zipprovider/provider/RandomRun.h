#pragma once

#include "ArchiveModel.h"
#include "MountedZip.h"
#include "RandomSteps.h"
#include "ZipProviderTest.h"

#include <support/FaultPlan.h>
#include <support/InMemoryProvider.h>
#include <support/TemporaryFolder.h>
#include <zipprovider/ScopedTimeZone.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>

namespace kx::test {

/// Where the archive of a random run lives.
enum class RandomPlace { Memory, InPlaceFile, InsideAnotherArchive };

std::ostream& operator<<(std::ostream& out, RandomPlace place);

/// The provider did something else than the model.
class Mismatch : public std::runtime_error {
    using runtime_error::runtime_error;
};

class SteppingClock;

/// A provider and the model of its archive, taken through the same steps side by side. After each step the
/// two are compared: listings, kinds, sizes, times and the bytes that the step was about; from time to time
/// all bytes. The clock goes on by an hour and two seconds a step. Outside UTC no step may fail: how often a
/// failing save is done again, which moves stamps there, is no matter of the model.
class RandomRun {
public:
    /// `zone` is a value of TZ.
    RandomRun(RandomPlace place, const std::string& zone);
    ~RandomRun();

    ArchiveModel& model() { return m_model; }
    /// Errors: Mismatch.
    void apply(const Step& step);
    /// Closes everything, and has the archive judged by a new provider and by independent readers.
    void finish();
    /// Called after each step before the comparison, to see what comes of a model that is wrong.
    void spoilWith(std::function<void(const Step&, ArchiveModel&)> spoil) { m_spoil = std::move(spoil); }

private:
    using ByteStream = foundation::storage::provider::ByteStream;
    using Streams = std::list<std::unique_ptr<ByteStream>>;

    void mount();
    void remount();
    void applyToTree(const Step& step);
    void applyToStreams(const Step& step);
    void copyFile(const Step& step);
    void writeWhole(const Step& step, bool append);
    void openForWriting(const Step& step, const ArchiveModel::Options& options);
    void readStream(const Step& step, ArchiveModel::Stream& expected, ByteStream& stream);
    void writeStream(const Step& step, ArchiveModel::Stream& expected, ByteStream& stream);
    void endStream(const Step& step, std::size_t index, bool close);

    /// Does `work`, which has to be refused as the model says. When a call on the container was made to fail,
    /// `wasDone` tells whether the change was made although its save failed; then all is saved again.
    /// Returns whether it was done.
    bool perform(const Step& step, const std::string& path, const ArchiveModel::Refusal& refusal,
                 const std::function<void()>& work, const std::function<bool()>& wasDone);
    void saveAgain();
    void compareTrees();
    void compareListings();
    void compareAttributes();
    std::int64_t timeOf(const std::string& path, bool folder);
    void compareBytes(const std::string& path);
    std::string readAs(const std::string& path);

    const TemporaryFolder m_temporary;
    const ScopedVariable m_temporaryVariable{"TMPDIR", m_temporary.path().string()};
    const ScopedTimeZone m_zone;
    const std::shared_ptr<SteppingClock> m_clock;
    const std::shared_ptr<InMemoryProvider> m_memory = std::make_shared<InMemoryProvider>();
    const std::shared_ptr<FaultPlan> m_plan = std::make_shared<FaultPlan>();
    const RandomPlace m_place;
    std::unique_ptr<MountedZip> m_outer;
    std::unique_ptr<MountedZip> m_zip;
    ArchiveModel m_model;
    Streams m_streams;
    std::size_t m_steps = 0;
    const std::shared_ptr<std::uint64_t> m_rebuilds = std::make_shared<std::uint64_t>(0);
    std::function<void(const Step&, ArchiveModel&)> m_spoil;
};

} // namespace kx::test
