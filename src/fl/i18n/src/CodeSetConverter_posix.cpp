#include "CodeSetConverter.h"
#include "utf8.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace fl::i18n::detail {

namespace {

using foundation::core::Mutex;
using foundation::core::MutexLock;

constexpr const char* utf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

/// Owner of one conversion descriptor.
class Descriptor {
public:
    Descriptor(const std::string& to, const std::string& from)
        : m_handle(::iconv_open(to.c_str(), from.c_str())) {
        if (m_handle == invalid()) {
            m_error = errno;
        }
    }
    Descriptor(Descriptor&& other) noexcept
        : m_handle(std::exchange(other.m_handle, invalid())), m_error(other.m_error) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (isOpen()) {
            ::iconv_close(m_handle);
        }
    }

    bool isOpen() const { return m_handle != invalid(); }
    int error() const { return m_error; }

    /// Forgets shift states of an earlier conversion.
    void reset() { ::iconv(m_handle, nullptr, nullptr, nullptr, nullptr); }

    /// Appends to `out` what `in` gives, as far as it can be converted, and takes that much off `in`. Without
    /// `in`, appends what ends the text (a return to the first shift state). Returns 0, EILSEQ or EINVAL.
    int convert(std::string_view* in, std::string& out) {
        char buffer[512];
        for (;;) {
            char* to = buffer;
            std::size_t room = sizeof buffer;
            // POSIX declares the input as changeable; it is not changed.
            char* from = in != nullptr ? const_cast<char*>(in->data()) : nullptr;
            std::size_t left = in != nullptr ? in->size() : 0;
            const std::size_t result = ::iconv(m_handle, in != nullptr ? &from : nullptr,
                                               in != nullptr ? &left : nullptr, &to, &room);
            const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
            out.append(buffer, to);
            if (in != nullptr) {
                in->remove_prefix(in->size() - left);
            }
            if (error != E2BIG) {
                if (error != 0 && error != EILSEQ && error != EINVAL) {
                    throw std::system_error(error, std::generic_category(),
                                            "cannot convert between code sets");
                }
                return error;
            }
        }
    }

private:
    static iconv_t invalid() { return reinterpret_cast<iconv_t>(-1); } // NOLINT(performance-no-int-to-ptr)

    iconv_t m_handle;
    int m_error = 0;
};

/// The descriptors of one pair of code sets that are not in use. A descriptor has state, so each conversion
/// under way has one to itself.
class DescriptorPool {
public:
    /// `verb` is what a message says of the pair: "from" or "to".
    DescriptorPool(std::string to, std::string from, const char* verb, std::string_view codeSet)
        : m_to(std::move(to)), m_from(std::move(from)) {
        // The C library takes what follows "//" as orders how to convert, and nothing as the process's own
        // code set.
        const bool isName = !codeSet.empty() && codeSet.find("//") == std::string_view::npos &&
                            codeSet.find('\0') == std::string_view::npos;
        const std::string failure =
            std::string("cannot convert ") + verb + " code set \"" + std::string(codeSet) + '"';
        if (!isName) {
            throw std::invalid_argument(failure + ": it is no name of a code set");
        }
        Descriptor first(m_to, m_from);
        if (!first.isOpen()) {
            if (first.error() != EINVAL) {
                throw std::system_error(first.error(), std::generic_category(), failure);
            }
            throw std::invalid_argument(failure + ": the system does not know it");
        }
        m_idle.push_back(std::move(first));
    }

    Descriptor take() {
        {
            const MutexLock lock(m_mutex);
            if (!m_idle.empty()) {
                Descriptor idle = std::move(m_idle.back());
                m_idle.pop_back();
                return idle;
            }
        }
        Descriptor made(m_to, m_from);
        if (!made.isOpen()) {
            throw std::system_error(made.error(), std::generic_category(),
                                    "cannot convert from code set \"" + m_from + "\" to \"" + m_to + '"');
        }
        return made;
    }

    void giveBack(Descriptor descriptor) {
        descriptor.reset();
        const MutexLock lock(m_mutex);
        m_idle.push_back(std::move(descriptor));
    }

private:
    const std::string m_to;
    const std::string m_from;
    Mutex m_mutex;
    std::vector<Descriptor> m_idle KX_GUARDED_BY(m_mutex);
};

std::string_view bytesOf(ustring_view text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

/// How many bytes the code set's smallest character has. 0 if it lacks 'A' altogether.
std::size_t unitSize(const std::string& codeSet) {
    Descriptor encoder(codeSet, utf16);
    if (!encoder.isOpen()) {
        return 1;
    }
    const auto sizeOf = [&encoder](ustring_view text) {
        std::string out;
        std::string_view in = bytesOf(text);
        encoder.reset();
        encoder.convert(&in, out);
        return out.size();
    };
    // The difference leaves out a byte order mark.
    return sizeOf(u"AA") - sizeOf(u"A");
}

} // namespace

struct CodeSetDecoder::Impl {
    explicit Impl(std::string_view name)
        : codeSet(name), pool(utf16, codeSet, "from", name),
          unit(std::max<std::size_t>(unitSize(codeSet), 1)) {}

    const std::string codeSet;
    DescriptorPool pool;
    // What is skipped after an invalid sequence.
    const std::size_t unit;
};

CodeSetDecoder::CodeSetDecoder(std::string_view codeSet) : m_impl(std::make_unique<Impl>(codeSet)) {}
CodeSetDecoder::~CodeSetDecoder() = default;

ustring CodeSetDecoder::decode(std::string_view bytes, bool strict) const {
    Descriptor descriptor = m_impl->pool.take();
    const std::string_view replacement(reinterpret_cast<const char*>(&replacementCharacter),
                                       sizeof replacementCharacter);
    std::string out;
    out.reserve(bytes.size() * sizeof(char16_t));
    std::string_view rest = bytes;
    while (const int error = descriptor.convert(&rest, out)) {
        if (strict) {
            throwUndecodable(m_impl->codeSet, bytes.size() - rest.size());
        }
        out += replacement;
        rest.remove_prefix(error == EINVAL ? rest.size() : std::min(m_impl->unit, rest.size()));
    }
    descriptor.convert(nullptr, out);
    m_impl->pool.giveBack(std::move(descriptor));

    ustring text(out.size() / sizeof(char16_t), u'\0');
    out.copy(reinterpret_cast<char*>(text.data()), text.size() * sizeof(char16_t));
    return text;
}

struct CodeSetEncoder::Impl {
    explicit Impl(std::string_view name) : codeSet(name), pool(codeSet, utf16, "to", name) {}

    const std::string codeSet;
    DescriptorPool pool;
};

CodeSetEncoder::CodeSetEncoder(std::string_view codeSet) : m_impl(std::make_unique<Impl>(codeSet)) {}
CodeSetEncoder::~CodeSetEncoder() = default;

std::string CodeSetEncoder::encode(ustring_view text, bool strict) const {
    Descriptor descriptor = m_impl->pool.take();
    const auto append = [&descriptor](ustring_view piece, std::string& out) {
        std::string_view in = bytesOf(piece);
        return descriptor.convert(&in, out) == 0;
    };
    std::string out;
    std::string_view rest = bytesOf(text);
    while (descriptor.convert(&rest, out) != 0) {
        const std::size_t position = text.size() - rest.size() / sizeof(char16_t);
        if (strict) {
            throwUnencodable(m_impl->codeSet, position);
        }
        const bool isPair = isHighSurrogate(text[position]) && position + 1 < text.size() &&
                            isLowSurrogate(text[position + 1]);
        const bool isUnpaired =
            !isPair && (isHighSurrogate(text[position]) || isLowSurrogate(text[position]));
        if (!isUnpaired || !append(ustring_view(&replacementCharacter, 1), out)) {
            append(u"?", out);
        }
        rest.remove_prefix((isPair ? 2 : 1) * sizeof(char16_t));
    }
    descriptor.convert(nullptr, out);
    m_impl->pool.giveBack(std::move(descriptor));
    return out;
}

} // namespace fl::i18n::detail
