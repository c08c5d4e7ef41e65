#include "FolderContents.h"

#include "PreparedNode.h"

#include <utility>

namespace storage::zipprovider {

using fl::i18n::ustring;
using foundation::core::MutexLock;

FolderContents::FolderContents(std::shared_ptr<FolderEntry> ownEntry)
    : m_impl(std::make_shared<Impl>(std::move(ownEntry))) {}

void FolderContents::add(std::shared_ptr<FolderEntry> entry) {
    const MutexLock lock(m_impl->mutex);
    auto name = entry->path.fileName();
    m_impl->children.try_emplace(std::move(name), std::move(entry));
}

std::shared_ptr<FolderEntry> FolderContents::findFile(const ustring& name) const {
    return find(name, ZipEntryType::File);
}

std::shared_ptr<FolderEntry> FolderContents::findFolder(const ustring& name) const {
    return find(name, ZipEntryType::Folder);
}

void FolderContents::replace(std::shared_ptr<FolderEntry> entry) {
    put(prepare(std::move(entry)));
}

FolderContents::Child FolderContents::prepare(std::shared_ptr<FolderEntry> entry) {
    auto name = entry->path.fileName();
    return preparedNode<FolderChildren>(std::move(name), std::move(entry));
}

void FolderContents::put(Child child) noexcept {
    const MutexLock lock(m_impl->mutex);
    putNode(m_impl->children, std::move(child));
}

std::shared_ptr<FolderEntry> FolderContents::remove(const ustring& name) {
    const MutexLock lock(m_impl->mutex);
    const auto child = m_impl->children.extract(name);
    return child.empty() ? nullptr : child.mapped();
}

bool FolderContents::empty() const {
    const MutexLock lock(m_impl->mutex);
    return m_impl->children.empty();
}

std::shared_ptr<FolderEntry> FolderContents::ownEntry() const {
    const MutexLock lock(m_impl->mutex);
    return m_impl->ownEntry;
}

void FolderContents::setOwnEntry(std::shared_ptr<FolderEntry> entry) {
    const MutexLock lock(m_impl->mutex);
    m_impl->ownEntry = std::move(entry);
}

std::shared_ptr<FolderEntry> FolderContents::find(const ustring& name, ZipEntryType type) const {
    const MutexLock lock(m_impl->mutex);
    const auto child = m_impl->children.find(name);
    return child != m_impl->children.end() && child->second->type == type ? child->second : nullptr;
}

} // namespace storage::zipprovider
