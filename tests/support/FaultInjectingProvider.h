#pragma once

#include "FaultPlan.h"

#include <foundation/storage/provider/IProvider.h>

#include <memory>

namespace kx::test {

namespace provider = foundation::storage::provider;

/// Counts the core operations of another provider and of its streams, and lets them fail as a plan says. The
/// other operations are the library's defaults over these, so that faults reach into the middle of them.
class FaultInjectingProvider final : public provider::IProvider {
public:
    /// Precondition: neither is null.
    FaultInjectingProvider(std::shared_ptr<provider::IProvider> target, std::shared_ptr<FaultPlan> plan);
    ~FaultInjectingProvider() override;

private:
    void doCreateFile(const provider::StorageIRI& location) override;
    void doCreateFolder(const provider::StorageIRI& location) override;
    bool doIsFile(const provider::StorageIRI& location) override;
    bool doIsFolder(const provider::StorageIRI& location) override;
    void doRemoveFile(const provider::StorageIRI& location) override;
    void doMoveFile(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                    provider::MoveOption option) override;
    void doRemoveFolder(const provider::StorageIRI& location) override;
    void doMoveFolder(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                      provider::MoveOption option) override;
    provider::FileAttributes doGetFileAttributes(const provider::StorageIRI& location) override;
    provider::FolderAttributes doGetFolderAttributes(const provider::StorageIRI& location) override;
    std::unique_ptr<provider::ByteStream>
    doOpenStream(const provider::StorageIRI& location,
                 const provider::ByteStreamOpenOptions& options) override;
    std::unique_ptr<provider::ByteStream> doOpenReadStream(const provider::StorageIRI& location) override;
    std::unique_ptr<provider::IFolderEntryIterator> doListAll(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator> doListFiles(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListFolders(const provider::StorageIRI& folder) override;
    void doSetLastModified(const provider::StorageIRI& location, boost::posix_time::ptime time) override;
    void doSetWritable(const provider::StorageIRI& location, bool writable) override;
    bool doHasFeature(provider::Feature feature) override;
    provider::PathComparator doGetPathComparator() override;
    provider::StorageIRI doGetCanonicalLocation(const provider::StorageIRI& location) override;

    const std::shared_ptr<provider::IProvider> m_target;
    const std::shared_ptr<FaultPlan> m_plan;
};

} // namespace kx::test
