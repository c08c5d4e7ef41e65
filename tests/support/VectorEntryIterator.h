#pragma once

#include <foundation/storage/provider/IClonableFolderEntryIterator.h>

#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kx::test {

/// A walk over entries held in a vector.
class VectorEntryIterator final
    : public foundation::storage::provider::IClonableFolderEntryIterator<VectorEntryIterator> {
public:
    using FolderEntry = foundation::storage::provider::FolderEntry;

    explicit VectorEntryIterator(std::vector<FolderEntry> entries) : m_entries(std::move(entries)) {}

    FolderEntry current() const override {
        if (m_passed == 0) {
            throw std::logic_error("cannot tell the current entry: it stands before the first");
        }
        return m_entries[m_passed - 1];
    }
    bool hasNext() const override { return m_passed < m_entries.size(); }
    void next() override {
        if (!hasNext()) {
            throw std::out_of_range("cannot move on: no entry remains");
        }
        ++m_passed;
    }

private:
    std::vector<FolderEntry> m_entries;
    std::size_t m_passed = 0;
};

} // namespace kx::test
