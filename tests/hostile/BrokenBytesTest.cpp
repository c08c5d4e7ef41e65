#include "HostileArchives.h"

#include <support/archives/ArchiveBuilder.h>
#include <support/archives/IndependentArchive.h>
#include <zipprovider/provider/ZipProviderTest.h>

#include <exception>
#include <functional>
#include <iostream>

namespace kx::test {

namespace {

class BrokenBytes : public ZipProviderTest {
protected:
    /// Every file that can be listed and read, with its bytes.
    static Contents readable(MountedZip& mounted) {
        Contents files;
        const std::function<void(const std::string&)> walk = [&](const std::string& folder) {
            for (const auto& name : mounted.list(folder)) {
                const auto path = folder + name;
                if (name.ends_with('/')) {
                    walk(path);
                    continue;
                }
                try {
                    files[path] = mounted.read(path);
                } catch (const std::exception&) {
                    // Told; the others can be read all the same.
                }
            }
        };
        try {
            walk("/");
        } catch (const std::exception&) {
            // An archive that cannot be indexed is told.
        }
        return files;
    }

    /// Reads what can be read, then changes the archive. The change is refused and nothing happens, or it is
    /// made and every file that could be read is in the new archive as it was.
    void expectSound(const std::string& bytes) {
        mount(bytes);
        const auto before = readable(zip);
        try {
            zip.createFolder("/added");
        } catch (const std::exception&) {
            ++m_refused;
            EXPECT_EQ(archive(), bytes);
            return;
        }
        ++m_changed;
        std::map<std::string, std::string> stored;
        ASSERT_NO_THROW(stored = readIndependently(archive()));
        EXPECT_TRUE(stored.contains("added/"));
        MountedZip again(container);
        const auto after = readable(again);
        for (const auto& [path, contents] : before) {
            const auto place = after.find(path);
            ASSERT_NE(place, after.end()) << path;
            EXPECT_EQ(place->second, contents) << path;
        }
    }

    void report(const char* what, std::size_t count) const {
        std::cout << count << ' ' << what << ": " << m_refused << " changes refused, " << m_changed << " made"
                  << std::endl;
    }

    std::size_t m_refused = 0;
    std::size_t m_changed = 0;
};

std::string zip64Archive(ArchiveLayout* layout = nullptr) {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/a.txt", "some text, some text");
    builder.last().zip64 = true;
    builder.end().zip64 = true;
    return builder.build(layout);
}

} // namespace

TEST_F(BrokenBytes, AnArchiveThatEndsAfterAnyByteLosesNothing) {
    const auto whole = plainArchive();
    for (std::size_t size = 1; size < whole.size(); ++size) {
        SCOPED_TRACE(testing::Message() << "the first " << size << " bytes of " << whole.size());
        ASSERT_NO_FATAL_FAILURE(expectSound(whole.substr(0, size)));
        EXPECT_EQ(m_changed, 0U);
    }
    report("truncated archives", whole.size() - 1);
}

/// What the Zip64 records say is enough to read every entry, and so to keep it, without the plain end record
/// behind them. The last two bytes of the locator, whose absence minizip does not notice, are zeros.
TEST_F(BrokenBytes, AZip64ArchiveThatEndsAfterAnyByteLosesNothing) {
    ArchiveLayout layout;
    const auto whole = zip64Archive(&layout);
    const auto enough = layout.endRecord - 2;
    for (std::size_t size = 1; size < whole.size(); ++size) {
        SCOPED_TRACE(testing::Message() << "the first " << size << " bytes of " << whole.size());
        const auto changedBefore = m_changed;
        ASSERT_NO_FATAL_FAILURE(expectSound(whole.substr(0, size)));
        EXPECT_EQ(m_changed - changedBefore, size < enough ? 0U : 1U);
        if (size >= enough) {
            EXPECT_EQ(readIndependently(archive()),
                      (Contents{{"added/", ""}, {"docs/", ""}, {"docs/a.txt", "some text, some text"}}));
        }
    }
    report("truncated Zip64 archives", whole.size() - 1);
}

TEST_F(BrokenBytes, AnyByteMayBeBrokenAndNothingIsLost) {
    std::size_t count = 0;
    for (const auto& whole : {plainArchive(), zip64Archive()}) {
        for (std::size_t place = 0; place < whole.size(); ++place) {
            for (const int value : {0x00, 0xFF, whole[place] ^ 0x01, whole[place] + 1}) {
                auto bytes = whole;
                bytes[place] = static_cast<char>(value);
                SCOPED_TRACE(testing::Message() << "byte " << place << " is " << (value & 0xFF));
                ASSERT_NO_FATAL_FAILURE(expectSound(bytes));
                ++count;
            }
        }
    }
    report("archives with one broken byte", count);
    EXPECT_GT(m_refused, 0U);
    EXPECT_GT(m_changed, 0U);
}

} // namespace kx::test
