#include "CorpusManifest.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include <fl/i18n/utf8.h>
#include <nlohmann/json.hpp>

namespace kx::test {

namespace {

/// The characters of code page 437 above ASCII, which names without the UTF-8 flag are shown in.
constexpr std::u16string_view codePage437 =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐└┴┬├─┼╞╟╚╔"
    u"╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00a0";
static_assert(codePage437.size() == 128);

std::string bytesOf(const std::string& shown, bool utf8Flag) {
    if (utf8Flag)
        return shown;
    std::string bytes;
    for (const char16_t unit : fl::i18n::fromUtf8(shown)) {
        if (unit < 0x80) {
            bytes.push_back(static_cast<char>(unit));
            continue;
        }
        const std::size_t position = codePage437.find(unit);
        if (position == std::u16string_view::npos)
            throw std::runtime_error("cannot read the corpus manifest: no byte is shown as in " + shown);
        bytes.push_back(static_cast<char>(static_cast<unsigned char>(0x80 + position)));
    }
    return bytes;
}

CorpusEntry entryOf(const nlohmann::json& row) {
    CorpusEntry entry;
    entry.utf8Flag = row.at("utf8_flag");
    entry.storedName = bytesOf(row.at("name"), entry.utf8Flag);
    entry.size = row.at("size");
    entry.crc32 = static_cast<std::uint32_t>(std::stoul(row.at("crc32").get<std::string>(), nullptr, 16));
    entry.modified = row.at("dos_time");
    entry.method = row.at("method");
    entry.encrypted = row.at("encrypted");
    return entry;
}

Consensus consensusOf(const std::string& word) {
    if (word == "clean")
        return Consensus::Clean;
    return word == "unreadable" ? Consensus::Unreadable : Consensus::Mixed;
}

} // namespace

std::optional<Corpus> Corpus::find() {
    const char* folder = std::getenv("KX_SHARED_CORPUS");
    if (!folder || !std::filesystem::exists(std::filesystem::path(folder) / "manifest.json"))
        return std::nullopt;

    Corpus corpus;
    corpus.folder = folder;
    std::ifstream stream(corpus.folder / "manifest.json");
    for (const nlohmann::json& row : nlohmann::json::parse(stream)) {
        CorpusArchive archive;
        archive.file = row.at("file");
        archive.consensus = consensusOf(row.at("consensus"));
        if (row.contains("entries")) {
            for (const nlohmann::json& entry : row.at("entries"))
                archive.entries.push_back(entryOf(entry));
        }
        corpus.archives.push_back(std::move(archive));
    }
    return corpus;
}

} // namespace kx::test
