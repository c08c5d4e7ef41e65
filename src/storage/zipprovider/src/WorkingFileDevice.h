#pragma once

#include <fl/filesystem/path.h>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/device/file.hpp>
#include <boost/iostreams/positioning.hpp>

#include <fstream>
#include <ios>
#include <memory>

namespace storage::zipprovider {

#ifdef _WIN32

/// What basic_file<char> is, for a file with any name: that class takes names in the system's code page only.
class WorkingFileDevice {
public:
    using char_type = char;
    struct category : boost::iostreams::seekable_device_tag,
                      boost::iostreams::closable_tag,
                      boost::iostreams::localizable_tag,
                      boost::iostreams::flushable_tag {};

    /// Opens the file; is_open() tells whether that succeeded.
    WorkingFileDevice(const fl::filesystem::path& path, std::ios_base::openmode mode)
        : m_file(std::make_shared<std::filebuf>()) {
        m_file->open(path, mode | std::ios_base::binary);
    }

    bool is_open() const { return m_file->is_open(); }
    std::streamsize read(char* buffer, std::streamsize count) {
        const std::streamsize got = m_file->sgetn(buffer, count);
        return got != 0 ? got : -1;
    }
    std::streamsize write(const char* buffer, std::streamsize count) { return m_file->sputn(buffer, count); }
    bool putback(char c) { return m_file->sputbackc(c) != std::filebuf::traits_type::eof(); }
    std::streampos seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir way,
                        std::ios_base::openmode which = std::ios_base::in | std::ios_base::out) {
        return m_file->pubseekoff(offset, way, which);
    }
    bool flush() { return m_file->pubsync() == 0; }
    void close() { m_file->close(); }
    void imbue(const std::locale& locale) { m_file->pubimbue(locale); }

private:
    std::shared_ptr<std::filebuf> m_file;
};

#else

/// A device over a working file; copies share it.
using WorkingFileDevice = boost::iostreams::basic_file<char>;

#endif

/// Opens a working file with the standard open-mode flags `mode`; is_open() of the result tells whether that
/// succeeded.
WorkingFileDevice openWorkingFile(const fl::filesystem::path& path, std::ios_base::openmode mode);

} // namespace storage::zipprovider
