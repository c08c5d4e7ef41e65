#include <storage/fileprovider/src/Journal.h>

#include <storage/fileprovider/src/WorkingNames.h>

#include <zlib.h>

namespace storage::fileprovider {

namespace {

constexpr std::string_view magic = "KXVFSJNL";
constexpr std::uint32_t version = 2;

std::uint32_t checksum(std::string_view bytes) {
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

class Writer {
public:
    template <typename Number>
    void number(Number value) {
        for (std::size_t i = 0; i < sizeof(Number); ++i) {
            m_bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
        }
    }
    void text(std::string_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        m_bytes += value;
    }
    void raw(std::string_view value) { m_bytes += value; }
    std::string finish() {
        number(checksum(m_bytes));
        return std::move(m_bytes);
    }

private:
    std::string m_bytes;
};

/// Reads on past the end as zeros and remembers that it did.
class Reader {
public:
    explicit Reader(std::string_view bytes) : m_rest(bytes) {}

    template <typename Number>
    Number number() {
        const auto bytes = raw(sizeof(Number));
        Number value = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            value |=
                static_cast<Number>(static_cast<Number>(static_cast<unsigned char>(bytes[i])) << (8 * i));
        }
        return value;
    }
    std::string text() { return std::string(raw(number<std::uint32_t>())); }
    std::string_view raw(std::size_t size) {
        if (size > m_rest.size()) {
            m_failed = true;
            return {};
        }
        const auto bytes = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return bytes;
    }
    bool isWhole() const { return !m_failed && m_rest.empty(); }

private:
    std::string_view m_rest;
    bool m_failed = false;
};

} // namespace

std::string encodeJournal(const Journal& journal) {
    Writer writer;
    writer.raw(magic);
    writer.number(version);
    writer.number(static_cast<std::uint32_t>(journal.phase));
    writer.number(std::uint32_t{journal.marked ? 1U : 0U});
    writer.number(journal.device);
    writer.number(journal.inode);
    writer.number(journal.oldSize);
    writer.number(journal.newSize);
    writer.number(journal.stagingInode);
    writer.number(journal.birthTime);
    writer.text(journal.id);
    writer.text(journal.bootId);
    writer.text(journal.target);
    writer.text(journal.stagingName);
    writer.text(journal.oldSamples);
    return writer.finish();
}

std::optional<Journal> decodeJournal(std::string_view bytes) {
    if (bytes.size() < magic.size() + sizeof(std::uint32_t)) {
        return std::nullopt;
    }
    const auto body = bytes.substr(0, bytes.size() - sizeof(std::uint32_t));
    Reader end(bytes.substr(body.size()));
    Reader reader(body);
    if (end.number<std::uint32_t>() != checksum(body) || reader.raw(magic.size()) != magic ||
        reader.number<std::uint32_t>() != version) {
        return std::nullopt;
    }
    Journal journal;
    const auto phase = reader.number<std::uint32_t>();
    journal.phase = static_cast<CopyOverPhase>(phase);
    journal.marked = reader.number<std::uint32_t>() != 0;
    journal.device = reader.number<std::uint64_t>();
    journal.inode = reader.number<std::uint64_t>();
    journal.oldSize = reader.number<std::uint64_t>();
    journal.newSize = reader.number<std::uint64_t>();
    journal.stagingInode = reader.number<std::uint64_t>();
    journal.birthTime = reader.number<std::uint64_t>();
    journal.id = reader.text();
    journal.bootId = reader.text();
    journal.target = reader.text();
    journal.stagingName = reader.text();
    journal.oldSamples = reader.text();
    const bool knownPhase =
        journal.phase >= CopyOverPhase::Prepared && journal.phase <= CopyOverPhase::Overwriting;
    const bool possibleNames =
        isStagingName(journal.stagingName) && journal.target.find('\0') == std::string::npos;
    return reader.isWhole() && knownPhase && possibleNames ? std::optional(journal) : std::nullopt;
}

} // namespace storage::fileprovider
