#include <apps/kxvfs/src/Words.h>

#include <stdexcept>

namespace apps::kxvfs {

std::vector<std::string> splitWords(std::string_view line) {
    std::vector<std::string> words;
    bool inWord = false;
    char quote = 0;
    const auto word = [&]() -> std::string& {
        if (!inWord)
            words.emplace_back();
        inWord = true;
        return words.back();
    };
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            word() += line[++i];
        } else if (quote) {
            if (c == quote)
                quote = 0;
            else
                word() += c;
        } else if (c == '"' || c == '\'') {
            word();
            quote = c;
        } else if (c == ' ' || c == '\t' || c == '\r') {
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;
        } else {
            word() += c;
        }
    }
    if (quote)
        throw std::invalid_argument("a quote is not closed");
    return words;
}

} // namespace apps::kxvfs
