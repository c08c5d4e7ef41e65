#pragma once

#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider {
class ByteStream;
class IProvider;
} // namespace foundation::storage::provider

namespace kx::test {

/// The bytes from the stream's position to its end.
std::string readAll(foundation::storage::provider::ByteStream& stream);
/// Writes all of the bytes at the stream's position; does not close it.
void writeAll(foundation::storage::provider::ByteStream& stream, std::string_view bytes);

/// The names that remain in a listing, in its order.
std::vector<fl::i18n::ustring> listNames(foundation::storage::provider::IFolderEntryIterator& listing);
/// The entries that remain in a listing, in its order.
std::vector<foundation::storage::provider::FolderEntry>
listEntries(foundation::storage::provider::IFolderEntryIterator& listing);

/// A whole file of a provider.
std::string readFile(foundation::storage::provider::IProvider& provider,
                     const foundation::storage::provider::StorageIRI& file);
/// Opens a file, writes the bytes and closes it.
void writeFile(foundation::storage::provider::IProvider& provider,
               const foundation::storage::provider::StorageIRI& file, std::string_view bytes,
               const foundation::storage::provider::ByteStreamOpenOptions& options = {});

/// Bytes without a pattern, the same for the same seed.
std::string randomBytes(std::size_t count, unsigned seed);

} // namespace kx::test
