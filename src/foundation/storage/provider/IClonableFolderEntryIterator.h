#pragma once

#include <foundation/storage/provider/IFolderEntryIterator.h>

namespace foundation::storage::provider {

/// Serves clone() of an iterator type T by T's copy constructor.
template <typename T>
class IClonableFolderEntryIterator : public IFolderEntryIterator {
public:
    std::unique_ptr<IFolderEntryIterator> clone() const override {
        return std::make_unique<T>(static_cast<const T&>(*this));
    }
};

} // namespace foundation::storage::provider
