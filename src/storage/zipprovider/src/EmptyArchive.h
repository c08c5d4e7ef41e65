#pragma once

#include <foundation/storage/provider/ByteStream.h>

namespace storage::zipprovider {

/// Whether the bytes are an archive without entries: nothing but an end-of-central-directory record, with its
/// comment, that declares none. minizip does not open such an archive: it takes a record that stands at the
/// very beginning for none. Errors: those of the stream.
bool isEmptyArchive(foundation::storage::provider::ByteStream& archive);

} // namespace storage::zipprovider
