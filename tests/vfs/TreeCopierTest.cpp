#include "Fixture.h"

#include <foundation/storage/provider/IProvider.h>
#include <storage/vfs/ChangeSession.h>
#include <storage/vfs/TreeCopier.h>
#include <support/ForwardingByteStream.h>
#include <support/ForwardingProvider.h>
#include <support/InMemoryProvider.h>
#include <support/archives/ArchiveShapes.h>
#include <support/archives/IndependentReaders.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <filesystem>
#include <map>

using namespace kx::test;
using namespace storage::vfs;
using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::Exception;
namespace fs = std::filesystem;

namespace {

class TreeCopierTest : public InFolder {
protected:
    TreeCopier::Options recording(TreeCopier::Options options = {}) {
        options.onFailure = [this](const CopyFailure& failure) {
            try {
                std::rethrow_exception(failure.error);
            } catch (const foundation::storage::provider::Exception& exception) {
                failures[failure.source.toUtf8()] = exception.getCause();
            } catch (const std::exception& exception) {
                failures[failure.source.toUtf8()] = exception.what();
            }
        };
        options.onCopied = [this](const StorageIRI&, const StorageIRI& destination) {
            copied.push_back(fl::i18n::toUtf8(destination.getName()));
        };
        return options;
    }

    /// Copies all of an archive into the local folder "out".
    std::uint64_t extract(const char* archive, TreeCopier::Options options = {}) {
        const auto root = inZip(archive, u"/");
        return TreeCopier(recording(std::move(options)))
            .copyFolder(vfs.mount(root, Tolerance::Damaged), root, vfs.mount(folder.iri()),
                        folder.iri("out"));
    }

    std::vector<std::string> extracted() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator(folder.file("out")))
            paths.push_back(entry.path().lexically_relative(folder.file("out")).generic_string() +
                            (entry.is_directory() ? "/" : ""));
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    Vfs vfs;
    std::map<std::string, std::string> failures;
    std::vector<std::string> copied;
};

using Paths = std::vector<std::string>;

} // namespace

TEST_F(TreeCopierTest, ATreeIsCopiedWithItsEmptyFolders) {
    save("plans.zip",
         simpleArchive({{"docs/a.txt", "text"}, {"docs/sub/b.txt", "b"}, {"empty/", ""}, {"zero", ""}}));
    EXPECT_EQ(extract("plans.zip"), 0U);
    EXPECT_EQ(extracted(), (Paths{"docs/", "docs/a.txt", "docs/sub/", "docs/sub/b.txt", "empty/", "zero"}));
    EXPECT_EQ(load(folder.file("out/docs/a.txt")), "text");
    EXPECT_EQ(copied, (Paths{"zero", "a.txt", "b.txt"}));
}

TEST_F(TreeCopierTest, ManyFilesOfAnArchiveAreReadInItsOwnOrder) {
    ArchiveBuilder builder;
    Paths stored;
    for (int i = 99; i >= 0; --i) {
        const auto name = std::to_string(100 + (i * 37) % 100);
        builder.add((i % 3 == 0 ? "a/" : i % 3 == 1 ? "b/deep/" : "") + name, name);
        stored.push_back(name);
    }
    save("plans.zip", builder.build());
    EXPECT_EQ(extract("plans.zip"), 0U);
    EXPECT_EQ(copied, stored);
    for (const auto& name : extracted())
        if (!name.ends_with('/')) {
            EXPECT_EQ(load(folder.file("out/" + name)), fs::path(name).filename());
        }
}

TEST_F(TreeCopierTest, WithinOneArchiveEachFileIsReadBeforeAnotherReplacesIt) {
    // Copying "x" over its own parent puts x/x/n in the place of x/n, and x/n in that of n.
    ArchiveBuilder builder;
    for (int i = 100; i < 150; ++i)
        builder.add("x/x/" + std::to_string(i), "deep");
    for (int i = 100; i < 150; ++i)
        builder.add("x/" + std::to_string(i), "shallow");
    save("plans.zip", builder.build());
    const auto root = inZip("plans.zip", u"/");
    ChangeSession session(vfs);
    session.lock({root});
    session.changing(root);
    const auto mounted = vfs.mount(root);
    EXPECT_EQ(TreeCopier(recording()).copyFolder(mounted, root.child(u"x"), mounted, root), 0U);
    EXPECT_TRUE(session.commit().empty());
    for (int i = 100; i < 150; ++i) {
        EXPECT_EQ(read(vfs, root.child(fl::i18n::fromUtf8(std::to_string(i)))), "shallow");
        EXPECT_EQ(read(vfs, root.child(u"x").child(fl::i18n::fromUtf8(std::to_string(i)))), "deep");
    }
}

TEST_F(TreeCopierTest, AFolderThatBecomesALinkWhileItsFilesWaitIsNotWrittenThrough) {
    ArchiveBuilder builder;
    builder.add("a/first", "1");
    for (int i = 100; i < 150; ++i)
        builder.add("b/" + std::to_string(i), "x");
    save("plans.zip", builder.build());
    fs::create_directories(folder.file("elsewhere"));
    TreeCopier::Options options;
    options.onProgress = [&](const CopyProgress& progress) {
        const auto place = folder.file("out/b");
        if (progress.source.getName() != u"first" || fs::is_symlink(place))
            return;
        fs::remove(place);
        fs::create_directory_symlink(folder.file("elsewhere"), place);
    };
    EXPECT_EQ(extract("plans.zip", options), 50U);
    EXPECT_TRUE(fs::is_empty(folder.file("elsewhere")));
    EXPECT_EQ(failures.size(), 50U);
    EXPECT_EQ(failures.begin()->second, "a symbolic link stands in the place of a folder above it");
}

TEST_F(TreeCopierTest, AFewFilesOfAnArchiveAreReadFolderByFolder) {
    save("plans.zip", simpleArchive({{"z", "1"}, {"b/y", "2"}, {"a/x", "3"}, {"c", "4"}}));
    EXPECT_EQ(extract("plans.zip"), 0U);
    EXPECT_EQ(copied, (Paths{"c", "z", "x", "y"}));
}

TEST_F(TreeCopierTest, FilesThatTheArchiveDoesNotYetHoldAreCopiedLast) {
    ArchiveBuilder builder;
    for (int i = 99; i > 49; --i)
        builder.add(std::to_string(i), "x");
    save("plans.zip", builder.build());
    const auto root = inZip("plans.zip", u"/");
    const auto mounted = vfs.mount(root);
    const auto unsaved = mounted.provider->openStream(root.child(u"10"), {});
    unsaved->write("new", 3);
    EXPECT_EQ(extract("plans.zip"), 0U);
    ASSERT_EQ(copied.size(), 51U);
    EXPECT_EQ(copied.front(), "99");
    EXPECT_EQ(copied[49], "50");
    EXPECT_EQ(copied.back(), "10");
    unsaved->close();
}

TEST_F(TreeCopierTest, NamesThatCouldLeaveTheTargetAreRefusedAndTheRestIsCopied) {
    save("evil.zip", simpleArchive({{"../up.txt", "1"},
                                    {"a/../../up2.txt", "2"},
                                    {"./dot.txt", "3"},
                                    {"/abs.txt", "4"},
                                    {std::string("nul\0x", 5), "5"},
                                    {"good/..", "6"},
                                    {"good/fine.txt", "7"}}));
    EXPECT_GT(extract("evil.zip"), 0U);
    EXPECT_EQ(extracted(), (Paths{"a/", "good/", "good/fine.txt"}));
    EXPECT_FALSE(fs::exists(folder.file("up.txt")));
    EXPECT_FALSE(fs::exists(folder.file("up2.txt")));
    EXPECT_EQ(failures[inZip("evil.zip", u"/..").toUtf8()], "its name would lead out of the target folder");
    EXPECT_EQ(failures[inZip("evil.zip", u"/abs.txt").toUtf8()], "its stored name is absolute");
    EXPECT_EQ(failures.size(), 6U);
}

TEST_F(TreeCopierTest, NothingIsWrittenThroughASymbolicLinkInTheTarget) {
    save("plans.zip", simpleArchive({{"link/x.txt", "x"}, {"file", "f"}, {"ok", "o"}}));
    fs::create_directories(folder.file("out"));
    fs::create_directories(folder.file("elsewhere"));
    fs::create_directory_symlink(folder.file("elsewhere"), folder.file("out/link"));
    save("outside", "untouched");
    fs::create_symlink(folder.file("outside"), folder.file("out/file"));
    EXPECT_EQ(extract("plans.zip"), 2U);
    EXPECT_TRUE(fs::is_empty(folder.file("elsewhere")));
    EXPECT_EQ(load(folder.file("outside")), "untouched");
    EXPECT_EQ(load(folder.file("out/ok")), "o");
}

TEST_F(TreeCopierTest, AnEntryWithAnUnsafeNameIsNotCopiedIntoAFolderAlone) {
    save("evil.zip", simpleArchive({{"x/..", "1"}}));
    fs::create_directories(folder.file("out"));
    TreeCopier copier(recording());
    const auto source = inZip("evil.zip", u"/x/..");
    EXPECT_EQ(copier.copyInto(vfs.mount(source), source, vfs.mount(folder.iri()), folder.iri("out"),
                              source.getName()),
              1U);
    EXPECT_EQ(failures[source.toUtf8()], "its name would lead out of the target folder");
}

TEST_F(TreeCopierTest, ExistingFilesAreReplacedOrKept) {
    save("plans.zip", simpleArchive({{"a", "new"}, {"b", "new"}}));
    save("out/a", "old");
    TreeCopier::Options keep;
    keep.conflict = ConflictPolicy::KeepExisting;
    EXPECT_EQ(extract("plans.zip", keep), 0U);
    EXPECT_EQ(load(folder.file("out/a")), "old");
    EXPECT_EQ(load(folder.file("out/b")), "new");
    EXPECT_EQ(extract("plans.zip"), 0U);
    EXPECT_EQ(load(folder.file("out/a")), "new");
}

TEST_F(TreeCopierTest, AFileInTheWayOfAFolderIsAFailureAndTheRestIsCopied) {
    save("plans.zip", simpleArchive({{"a/x", "1"}, {"b", "2"}}));
    save("out/a", "file");
    EXPECT_EQ(extract("plans.zip"), 1U);
    EXPECT_EQ(load(folder.file("out/a")), "file");
    EXPECT_EQ(load(folder.file("out/b")), "2");
}

TEST_F(TreeCopierTest, AnEntryThatCannotBeReadLeavesTheDestinationAlone) {
    ArchiveBuilder builder;
    builder.add("bad", std::string(1000, 'x')).add("good", "g");
    builder.entry(0).rawData = std::string(20, '\xff');
    builder.entry(0).uncompressedSize = 1000;
    save("bad.zip", builder.build());
    save("out/bad", "old");
    EXPECT_EQ(extract("bad.zip"), 1U);
    EXPECT_EQ(load(folder.file("out/bad")), "old");
    EXPECT_EQ(load(folder.file("out/good")), "g");
}

TEST_F(TreeCopierTest, TimesAreKeptWhereThatIsAskedFor) {
    ArchiveBuilder builder;
    builder.add("a", "1");
    builder.last().modified = DosTime::of(2001, 2, 3, 4, 5, 6);
    save("plans.zip", builder.build());
    TreeCopier::Options options;
    options.keepTimes = true;
    EXPECT_EQ(extract("plans.zip", options), 0U);
    using namespace boost::posix_time;
    EXPECT_EQ(vfs.item(folder.iri("out/a")).getFileAttributes().getLastModified(),
              ptime(boost::gregorian::date(2001, 2, 3), time_duration(4, 5, 6)));
}

TEST_F(TreeCopierTest, AFolderIsNotCopiedIntoItself) {
    fs::create_directories(folder.file("d/e"));
    TreeCopier copier(recording());
    const auto local = vfs.mount(folder.iri());
    EXPECT_EQ(copier.copyFolder(local, folder.iri("d"), local, folder.iri("d/e/f")), 1U);
    EXPECT_FALSE(fs::exists(folder.file("d/e/f")));
    EXPECT_EQ(failures[folder.iri("d").toUtf8()], "a folder cannot be copied into itself");
}

TEST_F(TreeCopierTest, AFileIsNotCopiedOntoItself) {
    save("x", "bytes");
    const auto local = vfs.mount(folder.iri());
    EXPECT_FALSE(TreeCopier(recording()).copyFile(local, folder.iri("x"), local, folder.iri("x")));
    EXPECT_EQ(load(folder.file("x")), "bytes");
}

TEST_F(TreeCopierTest, AnArchiveIsCopiedIntoAnother) {
    save("from.zip", simpleArchive({{"docs/a", "1"}, {"b", "2"}}));
    save("to.zip", simpleArchive({{"b", "old"}, {"c", "3"}}));
    const auto source = inZip("from.zip", u"/");
    const auto target = inZip("to.zip", u"/");
    ChangeSession session(vfs);
    session.lock({target});
    session.changing(target);
    EXPECT_EQ(TreeCopier(recording()).copyFolder(vfs.mount(source), source, vfs.mount(target), target), 0U);
    EXPECT_TRUE(session.commit().empty());
    const auto verdict = verifyArchive(folder.file("to.zip"));
    EXPECT_EQ(verdict.problems(), "");
    EXPECT_EQ(verdict.entries.size(), 4U) << "b, c, docs/ and docs/a";
    EXPECT_EQ(read(vfs, inZip("to.zip", u"/b")), "2");
}

namespace {

/// A stream that gives some bytes and then fails.
class BreakingStream : public foundation::storage::provider::ByteStream {
protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        if (m_read)
            throw std::runtime_error("the line broke");
        m_read = true;
        std::fill_n(buffer, std::min<std::int64_t>(count, 10), 'x');
        return std::min<std::int64_t>(count, 10);
    }
    std::int64_t doWrite(const char*, std::int64_t) override { return 0; }
    std::int64_t doSeek(std::int64_t, foundation::storage::provider::SeekOrigin) override { return 0; }
    void doClose() override {}

private:
    bool m_read = false;
};

} // namespace

TEST_F(TreeCopierTest, ASourceThatBreaksOffLeavesTheArchiveAsItWas) {
    save("to.zip", simpleArchive({{"b", "old"}}));
    const auto root = inZip("to.zip", u"/");
    ChangeSession session(vfs);
    session.lock({root});
    session.changing(root);
    for (const auto* name : {u"/b", u"/new"})
        for (const auto& options : {foundation::storage::provider::ByteStreamOpenOptions::overwrite(),
                                    foundation::storage::provider::ByteStreamOpenOptions::append()}) {
            BreakingStream stream;
            try {
                TreeCopier({}).copyStream(stream, vfs.mount(root), inZip("to.zip", name), options);
                ADD_FAILURE() << "it was copied";
            } catch (const std::runtime_error& failure) {
                EXPECT_STREQ(failure.what(), "the line broke");
            }
        }
    EXPECT_TRUE(session.commit().empty());
    EXPECT_EQ(read(vfs, inZip("to.zip", u"/b")), "old");
    EXPECT_EQ(verifyArchive(folder.file("to.zip")).names(), (Paths{"b"}));
}

namespace {

/// Makes a new file when it is opened and keeps it whatever becomes of the stream, as the provider of
/// archives may, and has no room to write, to close the stream or to remove.
class FullProvider final : public ForwardingProvider {
public:
    enum class Full { Writing, Closing };
    enum class Removal { Works, FailsAsTheInterfaceHasIt, FailsInAnotherWay };
    FullProvider(std::shared_ptr<InMemoryProvider> files, Full full, Removal removal)
        : ForwardingProvider(std::move(files)), m_full(full), m_removal(removal) {}

private:
    class Stream final : public ForwardingByteStream {
    public:
        Stream(std::unique_ptr<ByteStream> target, Full full)
            : ForwardingByteStream(std::move(target)), m_full(full) {}

    private:
        std::int64_t doWrite(const char* buffer, std::int64_t count) override {
            if (m_full == Full::Writing)
                throw Exception(ErrorCode::NoSpace, StorageIRI::parse("mem:///new"), "while writing");
            return ForwardingByteStream::doWrite(buffer, count);
        }
        void doClose() override {
            throw Exception(ErrorCode::NoSpace, StorageIRI::parse("mem:///new"), "while closing");
        }

        const Full m_full;
    };

    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) override {
        target()->createFile(location);
        return std::make_unique<Stream>(target()->openStream(location, options), m_full);
    }
    void doRemoveFile(const StorageIRI& location) override {
        if (m_removal == Removal::FailsAsTheInterfaceHasIt)
            throw Exception(ErrorCode::NoSpace, location, "while removing");
        if (m_removal == Removal::FailsInAnotherWay)
            throw std::runtime_error("the rebuilding broke off");
        target()->removeFile(location);
    }

    const Full m_full;
    const Removal m_removal;
};

} // namespace

TEST_F(TreeCopierTest, ANewEntryThatCannotBeWrittenToItsEndIsRemovedOrToldOf) {
    using Full = FullProvider::Full;
    using Removal = FullProvider::Removal;
    const std::map<Removal, Paths> toldOfRemoval{
        {Removal::Works, {}},
        {Removal::FailsAsTheInterfaceHasIt,
         {"the removal of what was copied of it failed: no space left: mem:///new: while removing"}},
        {Removal::FailsInAnotherWay,
         {"the removal of what was copied of it failed: the rebuilding broke off"}},
    };
    for (const auto full : {Full::Writing, Full::Closing})
        for (const auto& [removal, expected] : toldOfRemoval) {
            const auto files = std::make_shared<InMemoryProvider>();
            MountedContainer from;
            from.provider = files;
            writeFile(*files, files->at(u"/old"), "bytes");
            MountedContainer to;
            to.provider = std::make_shared<FullProvider>(files, full, removal);
            to.container = files->at(u"/to.zip");
            Paths told;
            TreeCopier::Options options;
            options.onFailure = [&](const CopyFailure& failure) {
                try {
                    std::rethrow_exception(failure.error);
                } catch (const Exception& error) {
                    EXPECT_EQ(error.getErrorCode(), ErrorCode::NoSpace);
                    told.push_back(error.getCause());
                } catch (const std::exception& error) {
                    told.emplace_back(error.what());
                }
            };
            EXPECT_FALSE(TreeCopier(options).copyFile(from, files->at(u"/old"), to, files->at(u"/new")));
            EXPECT_EQ(files->isFile(files->at(u"/new")), removal != Removal::Works);
            auto all = expected;
            all.emplace_back(full == Full::Writing ? "while writing" : "while closing");
            EXPECT_EQ(told, all);
            EXPECT_EQ(TreeCopier(options).copyInto(from, files->at(u"/old"), to, files->at(u"/"), u"other"),
                      all.size());
        }
}

TEST_F(TreeCopierTest, ProgressCountsFilesAndBytesAndCanStopTheCopy) {
    save("out/keep", "");
    ArchiveBuilder builder;
    builder.add("a", "12345").add("big", std::string(1'000'000, 'b')).add("c", "1");
    save("plans.zip", builder.build());
    std::uint64_t bytes = 0;
    TreeCopier::Options options;
    options.onProgress = [&](const CopyProgress& progress) {
        EXPECT_LE(progress.fileBytes, progress.fileSize);
        bytes = progress.bytes;
        if (progress.source.getName() == u"big" && progress.fileBytes > 500'000)
            throw StopCopying();
    };
    try {
        extract("plans.zip", options);
        ADD_FAILURE() << "it was copied";
    } catch (const StopCopying& stopped) {
        EXPECT_STREQ(stopped.what(), "the copy was stopped");
    }
    EXPECT_GT(bytes, 500'000U);
    EXPECT_EQ(extracted(), (Paths{"a", "keep"}));
}

TEST_F(TreeCopierTest, DeepFoldersNeedNoDeepStack) {
    InMemoryProvider::StorageIRI deepest = StorageIRI::parse("mem:///");
    const auto from = std::make_shared<InMemoryProvider>();
    const auto to = std::make_shared<InMemoryProvider>();
    for (int i = 0; i < 2000; ++i) {
        deepest = deepest.child(u"d");
        from->createFolder(deepest);
    }
    writeFile(*from, deepest.child(u"leaf"), "leaf");
    MountedContainer source;
    source.provider = from;
    MountedContainer target;
    target.provider = to;
    EXPECT_EQ(TreeCopier(recording()).copyFolder(source, from->at(u"/d"), target, to->at(u"/copy")), 0U);
    EXPECT_EQ(copied, (Paths{"leaf"}));
}
