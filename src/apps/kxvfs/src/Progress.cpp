#include <apps/kxvfs/src/Progress.h>

#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Terminal.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace apps::kxvfs {

namespace {

constexpr std::size_t barWidth = 20;

/// The signals' thread asks for it.
std::atomic<bool> lineShown = false;

/// The end of a name that fits into `width` columns.
std::string tail(const std::string& name, std::size_t width) {
    auto wide = fl::i18n::fromUtf8(name);
    if (wide.size() <= width)
        return name;
    return "…" + fl::i18n::toUtf8(fl::i18n::ustring_view(wide).substr(wide.size() - width + 1));
}

/// Nothing where the size is not known, as of standard input.
std::string bar(std::uint64_t done, std::uint64_t size) {
    if (size == 0)
        return {};
    const auto share = std::min(1.0, static_cast<double>(done) / static_cast<double>(size));
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
    return fmt::format(" [{}{}] {:3.0f}%", std::string(filled, '#'), std::string(barWidth - filled, '.'),
                       share * 100);
}

} // namespace

std::string ProgressLine::fitted(std::string_view name, const std::string& rest) {
    const auto taken = shownWidth(rest) + 1;
    return tail(escaped(name), terminalWidth() > taken + 1 ? terminalWidth() - taken : 1) + rest;
}

void ProgressLine::show(std::string_view text) {
    static const bool terminal = errorIsTerminal();
    if (!terminal)
        return;
    lineShown = true;
    fmt::print(stderr, "\r\x1b[K{}", text);
    std::fflush(stderr);
}

void ProgressLine::clear() {
    if (!lineShown)
        return;
    erase();
    lineShown = false;
}

bool ProgressLine::isShown() {
    return lineShown;
}

void ProgressLine::erase() {
    if (!errorIsTerminal())
        return;
    fmt::print(stderr, "\r\x1b[K");
    std::fflush(stderr);
}

CopyProgressBar::CopyProgressBar(bool wanted)
    : m_wanted(wanted && errorIsTerminal()), m_next(Clock::now() + ProgressLine::patience) {}

CopyProgressBar::~CopyProgressBar() {
    finish();
}

void CopyProgressBar::finish() {
    ProgressLine::clear();
}

void CopyProgressBar::update(const storage::vfs::CopyProgress& progress) {
    if (!m_wanted)
        return;
    const auto time = Clock::now();
    if (time < m_next)
        return;
    m_next = time + ProgressLine::interval;
    const auto numbers = fmt::format("{}  {}, {}", bar(progress.fileBytes, progress.fileSize),
                                     counted(progress.files, "file", "files"), humanSize(progress.bytes));
    ProgressLine::show(ProgressLine::fitted(fl::i18n::toUtf8(progress.source.getName()), numbers));
}

} // namespace apps::kxvfs
