#include "Fixture.h"

#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/vfs/ChangeSession.h>
#include <support/FaultInjectingProvider.h>
#include <support/FaultPlan.h>
#include <support/ForwardingProvider.h>
#include <support/archives/IndependentReaders.h>

#include <optional>
#include <thread>

using namespace kx::test;
using namespace storage::vfs;
using foundation::storage::provider::ByteStreamOpenOptions;

namespace {

class VfsTest : public InFolder {};

std::string plans() {
    return simpleArchive({{"docs/a.txt", "text"}, {"b.txt", "b"}});
}

} // namespace

TEST_F(VfsTest, AContainerHasOneProviderHoweverItIsSpelled) {
    save("real/plans.zip", plans());
    std::filesystem::create_symlink(folder.file("real/plans.zip"), folder.file("link.zip"));
    std::filesystem::create_directory_symlink(folder.file("real"), folder.file("other"));
    Vfs vfs;
    const auto provider = vfs.mount(inZip("real/plans.zip", u"/")).provider;
    for (const auto* spelling :
         {"link.zip", "other/plans.zip", "real//plans.zip", "other/../real/./plans.zip"})
        EXPECT_EQ(vfs.mount(inZip(spelling, u"/docs")).provider, provider) << spelling;
    const auto encoded = "zip:" + folder.iri("real").toUtf8() + "/pl%61ns.zip!/b.txt";
    EXPECT_EQ(vfs.mount(StorageIRI::parse(encoded)).provider, provider);
    std::filesystem::create_hard_link(folder.file("real/plans.zip"), folder.file("hard.zip"));
    EXPECT_EQ(vfs.mount(inZip("hard.zip", u"/docs")).provider, provider);
    EXPECT_EQ(read(vfs, inZip("hard.zip", u"/docs/a.txt")), "text");
    EXPECT_EQ(vfs.canonicalLocation(inZip("link.zip", u"/docs//a.txt/")),
              inZip("real/plans.zip", u"/docs/a.txt"));
}

TEST_F(VfsTest, ContainersNestAndShareTheirProviders) {
    save("outer.zip", simpleArchive({{"in/inner.zip", plans()}}));
    Vfs vfs;
    const auto inner = inZip("outer.zip", u"/in/inner.zip");
    const auto file = StorageIRI::inContainer("zip", inner, u"/docs/a.txt");
    EXPECT_EQ(read(vfs, file), "text");
    const auto spelledOtherwise =
        StorageIRI::inContainer("zip", inZip("outer.zip", u"//in//inner.zip"), u"/b.txt");
    EXPECT_EQ(vfs.mount(spelledOtherwise).provider, vfs.mount(file).provider);
}

TEST_F(VfsTest, ThreadsThatMountOneContainerGetOneProvider) {
    save("plans.zip", plans());
    Vfs vfs;
    std::vector<std::shared_ptr<foundation::storage::provider::IProvider>> seen(8);
    {
        std::vector<std::jthread> threads;
        for (auto& provider : seen)
            threads.emplace_back([&] { provider = vfs.mount(inZip("plans.zip", u"/")).provider; });
    }
    for (const auto& provider : seen)
        EXPECT_EQ(provider, seen.front());
}

TEST_F(VfsTest, AMissingContainerIsNotFound) {
    Vfs vfs;
    const auto failure = exceptionOf([&] { vfs.mount(inZip("no.zip", u"/x")); });
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::NotFound);
    EXPECT_EQ(failure.getIRI(), folder.iri("no.zip"));
}

TEST_F(VfsTest, AFileThatIsNoArchiveIsRefusedInWords) {
    save("notes.txt", "hello");
    Vfs vfs;
    const auto failure = exceptionOf([&] { vfs.mount(inZip("notes.txt", u"/"), Tolerance::Damaged); });
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::ContainerUnreadable);
    EXPECT_EQ(failure.getIRI(), folder.iri("notes.txt"));
    EXPECT_EQ(failure.getCause().find("not a ZIP archive: "), 0U) << failure.getCause();
}

TEST_F(VfsTest, ADamagedArchiveIsHandedOutOnlyWhereThatIsTolerated) {
    ArchiveBuilder builder;
    builder.add("a.txt", "a").add("b.txt", "b");
    builder.last().central.signature = 0;
    save("broken.zip", builder.build());
    Vfs vfs;
    const auto file = inZip("broken.zip", u"/a.txt");
    const auto refused = [&] {
        const auto failure = exceptionOf([&] { vfs.mount(file); });
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::ContainerUnreadable);
        EXPECT_EQ(failure.getCause().find("damaged ZIP archive: "), 0U) << failure.getCause();
    };
    refused();
    const auto mounted = vfs.mount(file, Tolerance::Damaged);
    EXPECT_EQ(mounted.summary.condition, ArchiveCondition::Damaged);
    EXPECT_EQ(readFile(*mounted.provider, file), "a");
    refused();
}

TEST_F(VfsTest, AFileWithoutBytesIsAnEmptyArchive) {
    save("empty.zip", "");
    Vfs vfs;
    const auto mounted = vfs.mount(inZip("empty.zip", u"/"));
    EXPECT_EQ(mounted.summary.condition, ArchiveCondition::Empty);
    EXPECT_FALSE(mounted.provider->listAll(inZip("empty.zip", u"/"))->hasNext());
}

TEST_F(VfsTest, ASchemeThatNobodyServesIsNamed) {
    save("x.tar", "tar");
    Vfs vfs;
    const auto container =
        exceptionOf([&] { vfs.mount(StorageIRI::inContainer("tar", folder.iri("x.tar"), u"/")); });
    EXPECT_EQ(container.getErrorCode(), ErrorCode::InvalidArgument);
    EXPECT_EQ(container.getCause(), "no provider serves the scheme \"tar\"");
    const auto plain = exceptionOf([&] { vfs.mount(StorageIRI::parse("http://example.org/x")); });
    EXPECT_EQ(plain.getCause(), "no provider serves the scheme \"http\"");
}

TEST_F(VfsTest, EntriesWithAbsoluteNamesAreListed) {
    save("abs.zip", simpleArchive({{"x", "1"}, {"/abs/f", "2"}}));
    Vfs vfs;
    const auto mounted = vfs.mount(inZip("abs.zip", u"/"));
    ASSERT_TRUE(mounted.absoluteEntries);
    EXPECT_EQ(*mounted.absoluteEntries, (std::vector<fl::i18n::ustring>{u"/abs/f"}));
}

TEST_F(VfsTest, OnlyArchivesCountAsContainers) {
    save("plans.zip", plans());
    save("notes.txt", "hello");
    save("empty", "");
    Vfs vfs;
    EXPECT_TRUE(vfs.isContainer(folder.iri("plans.zip")));
    EXPECT_FALSE(vfs.isContainer(folder.iri("notes.txt")));
    EXPECT_FALSE(vfs.isContainer(folder.iri("empty")));
    EXPECT_FALSE(vfs.isContainer(folder.iri("missing")));
    EXPECT_FALSE(vfs.isContainer(inZip("plans.zip", u"/b.txt")));
}

TEST_F(VfsTest, ANewArchiveIsValidAndTakesEntries) {
    Vfs vfs;
    vfs.createArchive(folder.iri("new.zip"));
    EXPECT_EQ(verifyArchive(folder.file("new.zip")).problems(), "");
    EXPECT_EQ(exceptionOf([&] { vfs.createArchive(folder.iri("new.zip")); }).getErrorCode(),
              ErrorCode::AlreadyExists);
    const auto file = inZip("new.zip", u"/a.txt");
    writeFile(*vfs.mount(file).provider, file, "first");
    EXPECT_EQ(verifyArchive(folder.file("new.zip")).names(), (std::vector<std::string>{"a.txt"}));
}

TEST_F(VfsTest, AnArchiveThatCouldNotBeMadeIsNotThere) {
    const auto plan = std::make_shared<FaultPlan>();
    Vfs::Options options;
    options.localFiles =
        std::make_shared<FaultInjectingProvider>(storage::fileprovider::LocalFileProvider::create(), plan);
    Vfs vfs(options);
    for (const auto operation :
         {ProviderOperation::OpenStream, ProviderOperation::StreamWrite, ProviderOperation::StreamClose}) {
        plan->failCall(1, {operation}, FaultPlan::Afterwards::Works, ErrorCode::NoSpace);
        EXPECT_EQ(exceptionOf([&] { vfs.createArchive(folder.iri("new.zip")); }).getErrorCode(),
                  ErrorCode::NoSpace);
        EXPECT_FALSE(std::filesystem::exists(folder.file("new.zip")));
        plan->countOnly();
    }
    vfs.createArchive(folder.iri("new.zip"));
    EXPECT_EQ(verifyArchive(folder.file("new.zip")).problems(), "");
}

TEST_F(VfsTest, AFileOfAnotherProgramOutlivesAnArchiveThatCouldNotBeMade) {
    /// Another program makes the file, while the provider can make none.
    class Overtaken final : public ForwardingProvider {
    public:
        Overtaken(std::shared_ptr<foundation::storage::provider::IProvider> target,
                  std::filesystem::path file)
            : ForwardingProvider(std::move(target)), m_file(std::move(file)) {}

    protected:
        void doCreateFile(const StorageIRI& location) override {
            std::ofstream(m_file).close();
            throw foundation::storage::provider::Exception(ErrorCode::NoSpace, location);
        }

    private:
        const std::filesystem::path m_file;
    };
    const auto file = folder.file("new.zip");
    Vfs::Options options;
    options.localFiles =
        std::make_shared<Overtaken>(storage::fileprovider::LocalFileProvider::create(), file);
    Vfs vfs(options);
    EXPECT_EQ(exceptionOf([&] { vfs.createArchive(folder.iri("new.zip")); }).getErrorCode(),
              ErrorCode::NoSpace);
    EXPECT_TRUE(std::filesystem::exists(file));
    std::filesystem::remove(file);
}

TEST_F(VfsTest, AnInnerArchiveThatCouldNotBeMadeIsNotThere) {
    const auto inner = inZip("plans.zip", u"/docs/in.zip");
    const FaultPlan::Operations saving = {ProviderOperation::OpenStream, ProviderOperation::StreamWrite,
                                          ProviderOperation::StreamClose};
    std::uint64_t failing = 0;
    bool made = false;
    while (!made) {
        SCOPED_TRACE(++failing);
        save("plans.zip", plans());
        const auto plan = std::make_shared<FaultPlan>();
        Vfs::Options options;
        options.localFiles = std::make_shared<FaultInjectingProvider>(
            storage::fileprovider::LocalFileProvider::create(), plan);
        Vfs vfs(options);
        plan->failCall(failing, saving);
        try {
            vfs.createArchive(inner);
            made = plan->failures() == 0;
        } catch (const foundation::storage::provider::Exception&) {
            EXPECT_EQ(verifyArchive(folder.file("plans.zip")).names().size(), 2U);
            vfs.createArchive(inner);
        }
        EXPECT_EQ(read(vfs, inner).size(), 22U);
    }
    EXPECT_GT(failing, 4U);
}

TEST_F(VfsTest, ClosingReadsTheContainerAgainLater) {
    save("plans.zip", plans());
    Vfs vfs;
    std::weak_ptr<foundation::storage::provider::IProvider> before =
        vfs.mount(inZip("plans.zip", u"/")).provider;
    save("plans.zip", simpleArchive({{"other", "new"}}));
    vfs.close(folder.iri("plans.zip"));
    EXPECT_TRUE(before.expired());
    EXPECT_EQ(read(vfs, inZip("plans.zip", u"/other")), "new");
}

TEST_F(VfsTest, ClosingAContainerClosesThoseInsideIt) {
    save("outer.zip", simpleArchive({{"inner.zip", plans()}}));
    Vfs vfs;
    const auto inner = StorageIRI::inContainer("zip", inZip("outer.zip", u"/inner.zip"), u"/");
    std::weak_ptr<foundation::storage::provider::IProvider> provider = vfs.mount(inner).provider;
    vfs.close(folder.iri("outer.zip"));
    EXPECT_TRUE(provider.expired());
}

namespace {

/// A front over local files that fail as a plan says, with one change to plans.zip that could not be written.
class UnsavedChange : public VfsTest {
protected:
    void SetUp() override {
        save("plans.zip", plans());
        Vfs::Options options;
        options.localFiles = std::make_shared<FaultInjectingProvider>(
            storage::fileprovider::LocalFileProvider::create(), plan);
        vfs.emplace(options);
    }

    void changeAndFail(FaultPlan::Afterwards afterwards) {
        const auto file = inZip("plans.zip", u"/c.txt");
        ChangeSession session(*vfs);
        session.lock({file});
        writeFile(*session.changing(file), file, "late");
        plan->failCall(1, {ProviderOperation::OpenStream}, afterwards);
        EXPECT_EQ(session.commit().size(), 1U);
    }

    std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>();
    std::optional<Vfs> vfs;
};

} // namespace

TEST_F(UnsavedChange, OfAnOuterArchiveIsNotSavedAfterAllOnceItWasReported) {
    save("plans.zip", simpleArchive({{"in.zip", plans()}}));
    const auto inner = StorageIRI::inContainer("zip", inZip("plans.zip", u"/in.zip"), u"/docs/a.txt");
    changeAndFail(FaultPlan::Afterwards::Works);
    EXPECT_EQ(read(*vfs, inner), "text");
    plan->failCall(1, {ProviderOperation::OpenStream});
    EXPECT_EQ(vfs->closeAll().size(), 1U);
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
    EXPECT_EQ(verifyArchive(folder.file("plans.zip")).names(), (std::vector<std::string>{"in.zip"}));
}

TEST_F(UnsavedChange, IsTriedAgainWhenItsContainerIsClosedAndTheFailureIsThrown) {
    changeAndFail(FaultPlan::Afterwards::FailsOn);
    EXPECT_THROW(vfs->close(folder.iri("plans.zip")), std::exception);
    EXPECT_EQ(verifyArchive(folder.file("plans.zip")).names(),
              (std::vector<std::string>{"docs/a.txt", "b.txt"}));
}

TEST_F(UnsavedChange, IsReportedWhenEverythingIsClosed) {
    changeAndFail(FaultPlan::Afterwards::FailsOn);
    const auto failures = vfs->closeAll();
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].container, folder.iri("plans.zip"));
    EXPECT_NE(failures[0].cause, "");
    EXPECT_THROW(std::rethrow_exception(failures[0].error), std::exception);
}

TEST_F(UnsavedChange, IsNotSavedAfterAllOnceItWasReported) {
    changeAndFail(FaultPlan::Afterwards::Works);
    plan->failCall(1, {ProviderOperation::OpenStream});
    EXPECT_EQ(vfs->closeAll().size(), 1U);
    vfs.reset();
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 1U);
    EXPECT_EQ(verifyArchive(folder.file("plans.zip")).names(),
              (std::vector<std::string>{"docs/a.txt", "b.txt"}));
}

TEST_F(UnsavedChange, IsSavedByClosingWhereThatIsPossibleAgain) {
    changeAndFail(FaultPlan::Afterwards::Works);
    EXPECT_TRUE(vfs->closeAll().empty());
    EXPECT_EQ(verifyArchive(folder.file("plans.zip")).names(),
              (std::vector<std::string>{"b.txt", "docs/a.txt", "c.txt"}));
}

namespace {

/// Changes that were made without a session.
class PendingChange : public UnsavedChange {
protected:
    PendingChange() = default;

    void SetUp() override {
        UnsavedChange::SetUp();
        provider = vfs->mount(file).provider;
    }
    void changeInVain(FaultPlan::Afterwards afterwards) {
        plan->failCall(1, {ProviderOperation::OpenStream}, afterwards);
        EXPECT_THROW(writeFile(*provider, file, "late"), std::exception);
    }
    std::vector<std::string> saved() const { return verifyArchive(folder.file("plans.zip")).names(); }

    const StorageIRI file = inZip("plans.zip", u"/c.txt");
    const std::vector<std::string> old{"docs/a.txt", "b.txt"};
    const std::vector<std::string> changed{"b.txt", "docs/a.txt", "c.txt"};
    /// Somebody who goes on using it.
    std::shared_ptr<foundation::storage::provider::IProvider> provider;
};

} // namespace

TEST_F(PendingChange, IsWrittenWhenItsContainerIsClosed) {
    changeInVain(FaultPlan::Afterwards::Works);
    EXPECT_EQ(saved(), old);
    vfs->close(folder.iri("plans.zip"));
    EXPECT_EQ(saved(), changed);
}

TEST_F(PendingChange, ThatCannotBeWrittenIsReportedWhenItsContainerIsClosed) {
    changeInVain(FaultPlan::Afterwards::FailsOn);
    EXPECT_THROW(vfs->close(folder.iri("plans.zip")), std::exception);
    EXPECT_EQ(saved(), old);
}

TEST_F(PendingChange, OfAStreamThatIsStillOpenIsWrittenWhenEverythingIsClosed) {
    const auto stream = provider->openStream(file, ByteStreamOpenOptions::overwrite());
    writeAll(*stream, "early");
    EXPECT_TRUE(vfs->closeAll().empty());
    EXPECT_EQ(saved(), changed);
    stream->close();
}

TEST_F(PendingChange, IsWrittenBeforeItsProviderIsForgottenAndReportedWhenThatFails) {
    changeInVain(FaultPlan::Afterwards::FailsOn);
    const auto failures = vfs->forget(folder.iri("plans.zip"));
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].container, folder.iri("plans.zip"));
    provider.reset();
    plan->countOnly();
    provider = vfs->mount(file).provider;
    changeInVain(FaultPlan::Afterwards::Works);
    EXPECT_TRUE(vfs->forget(folder.iri("plans.zip")).empty());
    EXPECT_EQ(saved(), changed);
}

TEST_F(PendingChange, IsWrittenOrReportedBeforeASessionBegins) {
    changeInVain(FaultPlan::Afterwards::FailsOn);
    {
        ChangeSession session(*vfs);
        EXPECT_THROW(session.lock({file}), std::exception);
    }
    provider.reset();
    plan->countOnly();
    provider = vfs->mount(file).provider;
    changeInVain(FaultPlan::Afterwards::Works);
    ChangeSession session(*vfs);
    session.lock({file});
    EXPECT_EQ(saved(), changed);
}

TEST_F(PendingChange, IsTheOnlyReasonToWriteAContainerThatIsClosed) {
    EXPECT_FALSE(provider->exists(file));
    plan->countOnly();
    EXPECT_TRUE(vfs->closeAll().empty());
    EXPECT_EQ(plan->countOf(ProviderOperation::OpenStream), 0U);
}
