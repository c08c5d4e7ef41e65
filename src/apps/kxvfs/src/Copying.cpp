#include <apps/kxvfs/src/Copying.h>

#include <apps/kxvfs/src/Entries.h>

#include <fl/i18n/utf8.h>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using namespace storage::vfs;

Copying::Copying(Session& session, Options options)
    : m_session(session), m_options(std::move(options)), m_progress(session.progressWanted()),
      m_copier([this] {
          TreeCopier::Options copier;
          copier.conflict = m_options.keepExisting ? ConflictPolicy::KeepExisting : ConflictPolicy::Overwrite;
          copier.keepTimes = m_options.keepTimes;
          copier.onProgress = [this](const CopyProgress& progress) { m_progress.update(progress); };
          copier.onFailure = [this](const CopyFailure& failure) { onFailure(failure); };
          copier.onCopied = [this](const StorageIRI& source, const StorageIRI& destination) {
              onCopied(source, destination);
          };
          return copier;
      }()) {}

void Copying::setTarget(const std::string& typed, const std::string& archive, bool severalSources) {
    // Replacing an archive by another file is asked for with -T; a slip must not destroy it.
    const auto meaning =
        m_options.exactTarget && !m_options.recursive ? FileMeaning::File : FileMeaning::FolderIfArchive;
    m_target = m_session.findToChange(typed, meaning, archive);
    const bool folder = m_target.isFolder();
    if (!folder && (severalSources || (m_target.location.folderMeant && !m_options.recursive)))
        throw CommandError(ErrorCode::NotFound,
                           m_target.isFile() ? "is not a folder" : "there is no such folder");
    if (!folder && !m_target.provider().isFolder(m_target.iri().parent()))
        throw CommandError(ErrorCode::NotFound, "the folder for it does not exist");
    m_intoTarget = folder && !m_options.exactTarget;
    m_target.location.iri = m_session.vfs().canonicalLocation(m_target.iri());
}

fl::i18n::ustring Copying::nameOf(const Place& source) const {
    const auto name = source.iri().getName();
    if (name.empty() && source.iri().hasContainer())
        return source.iri().getContainer().getName();
    return name;
}

StorageIRI Copying::destinationOf(const Place& source) const {
    const auto name = nameOf(source);
    // "." and ".." of the local files stand for the folder's contents, as in cp.
    const bool contents = !source.iri().hasContainer() && (name == u"." || name == u"..");
    return m_intoTarget && !contents && !name.empty() ? m_target.iri().child(name) : m_target.iri();
}

std::string Copying::shownDestination(const Place& source) const {
    return shownBelow(destinationOf(source), m_target.iri(), m_target.shown());
}

bool Copying::copy(const Place& source) {
    const bool folder = source.isFolder();
    if (!folder && !source.isFile())
        throw CommandError(ErrorCode::NotFound, std::string(toText(ErrorCode::NotFound)));
    if (folder && !m_options.recursive)
        throw CommandError(ErrorCode::InvalidArgument, "is a folder; -r copies folders");
    const auto destination = destinationOf(source);
    if (m_options.keepExisting && !folder && m_target.provider().isFile(destination))
        return true;
    m_session.changing(m_target);
    m_sourceTop = m_session.vfs().canonicalLocation(source.iri());
    m_sourceShown = source.shown();
    const auto failures = m_session.failures();
    if (destination != m_target.iri())
        m_copier.copyInto(source.mounted, m_sourceTop, m_target.mounted, m_target.iri(),
                          destination.getName());
    else if (folder)
        m_copier.copyFolder(source.mounted, m_sourceTop, m_target.mounted, destination);
    else
        m_copier.copyFile(source.mounted, m_sourceTop, m_target.mounted, destination);
    return m_session.failures() == failures;
}

void Copying::copyInput(ByteStream& in) {
    if (m_target.isFolder())
        throw CommandError(ErrorCode::InvalidArgument,
                           "is a folder; standard input has no name to give to a file in it");
    if (m_options.keepExisting && m_target.isFile())
        return;
    m_session.changing(m_target);
    m_copier.copyStream(in, m_target.mounted, m_target.iri(), ByteStreamOpenOptions::overwrite());
    onCopied(StorageIRI(), m_target.iri());
}

std::string Copying::shownBelow(const StorageIRI& place, const StorageIRI& top,
                                const std::string& shownTop) const {
    const auto path = fl::i18n::toUtf8(place.getResolvedPath());
    const auto above = fl::i18n::toUtf8(top.getResolvedPath());
    if (!path.starts_with(above) || path.size() == above.size())
        return shownTop;
    auto relative = path.substr(above.size());
    relative.erase(0, relative.find_first_not_of('/'));
    return joinShown(shownTop, relative);
}

void Copying::onFailure(const CopyFailure& failure) {
    const auto described = describe(failure.error);
    const bool atDestination = !described.place.empty() && described.place != failure.source.toUtf8();
    m_session.fail(atDestination ? shownBelow(failure.destination, m_target.iri(), m_target.shown())
                                 : shownBelow(failure.source, m_sourceTop, m_sourceShown),
                   failure.error);
}

void Copying::onCopied(const StorageIRI& source, const StorageIRI& destination) {
    Change change{destination, m_target.mounted, "copied", source};
    if (m_options.onCopied)
        m_options.onCopied(std::move(change));
    else
        m_session.done(std::move(change));
}

} // namespace apps::kxvfs
