#pragma once

namespace storage::zipprovider {

/// How a rebuild takes over the entries that did not change.
enum class RebuildMode {
    /// Entries that this system wrote are copied as they are stored; they would come out of inflating and
    /// deflating again byte for byte the same.
    Fast,
    /// Every entry is inflated and deflated again, whoever wrote it. The same archives, slower: what tests
    /// compare the fast way with.
    Plain,
};

/// The mode of the whole process, Fast unless changed. Threads: any; a rebuild under way may go either way.
RebuildMode rebuildMode() noexcept;
void setRebuildMode(RebuildMode mode) noexcept;

} // namespace storage::zipprovider
