#include <storage/vfs/Recovery.h>

#include <storage/vfs/src/LocalFile.h>

#include <storage/fileprovider/Recovery.h>

namespace storage::vfs {

using storage::fileprovider::RecoveryOutcome;

namespace {

RecoveryResult resultOf(RecoveryOutcome outcome) {
    switch (outcome) {
    case RecoveryOutcome::DiscardedUnfinishedSave:
        return RecoveryResult::Undone;
    case RecoveryOutcome::FinishedSave:
        return RecoveryResult::Finished;
    case RecoveryOutcome::LeftAlone:
        return RecoveryResult::LeftAlone;
    case RecoveryOutcome::Nothing:
        break;
    }
    return RecoveryResult::Nothing;
}

} // namespace

Recovery recoverContainer(const foundation::storage::provider::StorageIRI& location) {
    auto report = storage::fileprovider::recoverFile(localFileUnder(location));
    return {resultOf(report.outcome), std::move(report.details)};
}

std::vector<foundation::storage::provider::StorageIRI> haltSaves() {
    return storage::fileprovider::haltSaves();
}

} // namespace storage::vfs
