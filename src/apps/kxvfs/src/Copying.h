#pragma once

#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/Session.h>

#include <storage/vfs/TreeCopier.h>

#include <functional>
#include <string>

namespace apps::kxvfs {

/// Copying and moving as cp, mv and batch do it: where a source goes to, and how failures are named.
class Copying {
public:
    struct Options {
        bool recursive = false;
        bool keepExisting = false;
        bool keepTimes = false;
        /// The destination is never a folder to put things into.
        bool exactTarget = false;
        /// Told of each file that was copied; Session::done where empty.
        std::function<void(Change)> onCopied = {};
    };

    Copying(Session& session, Options options);

    /// Sets where everything goes. Several sources need a folder. Errors: CommandError; those of the
    /// provider.
    void setTarget(const std::string& typed, const std::string& archive, bool severalSources);
    const Place& target() const { return m_target; }

    /// Where `source` would stand.
    foundation::storage::provider::StorageIRI destinationOf(const Place& source) const;
    /// `source` as it would be typed at its destination.
    std::string shownDestination(const Place& source) const;

    /// Copies one source. Failures are reported; returns whether there were none.
    bool copy(const Place& source);
    /// Writes what `in` has to the target.
    void copyInput(foundation::storage::provider::ByteStream& in);

private:
    fl::i18n::ustring nameOf(const Place& source) const;
    std::string shownBelow(const foundation::storage::provider::StorageIRI& place,
                           const foundation::storage::provider::StorageIRI& top,
                           const std::string& shownTop) const;
    void onFailure(const storage::vfs::CopyFailure& failure);
    void onCopied(const foundation::storage::provider::StorageIRI& source,
                  const foundation::storage::provider::StorageIRI& destination);

    Session& m_session;
    const Options m_options;
    CopyProgressBar m_progress;
    storage::vfs::TreeCopier m_copier;
    Place m_target;
    bool m_intoTarget = false;
    /// The tops of the copy under way, for naming what failed below them.
    foundation::storage::provider::StorageIRI m_sourceTop;
    std::string m_sourceShown;
};

} // namespace apps::kxvfs
