#pragma once

#include <cstdint>
#include <string>

#include <support/archives/ArchiveBuilder.h>

namespace kx::test {

/// An entry of `count` times `chunk`, deflated, made at the cost of one chunk whatever the count: its data is
/// one self-contained deflate block repeated. `content` stays empty, so an entry of several GiB costs a few
/// MiB.
ArchiveEntry repeatedEntry(std::string name, const std::string& chunk, std::uint64_t count);

/// A stored entry of `size` zeros that costs no disk in a file written by ArchiveBuilder::writeFile.
ArchiveEntry sparseEntry(std::string name, std::uint64_t size);

/// An archive of `folders` folders "d0000/" with `perFolder` files "f0000.txt" each, whose content is their
/// own path. The folders have entries of their own when `explicitFolders`.
std::string wideArchive(unsigned folders, unsigned perFolder, bool explicitFolders = false);

/// The stored name and the content of a file of wideArchive.
std::string wideArchiveFile(unsigned folder, unsigned file);

/// A file "n/n/.../leaf.txt" below `depth` folders.
std::string deepArchive(unsigned depth);

} // namespace kx::test
