#include <storage/mount/MountOptions.h>
#include <storage/mount/src/SystemFailure.h>
#include <storage/mount/src/Times.h>

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/storage/provider/Exception.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <limits>
#include <new>
#include <stdexcept>

using foundation::storage::provider::ErrorCode;
using storage::mount::causeOf;
using storage::mount::errorNumberOf;
using storage::mount::MountOptions;

namespace {

template <typename Failure>
int numberOf(const Failure& failure) {
    return errorNumberOf(std::make_exception_ptr(failure));
}

int numberOf(ErrorCode code) {
    using namespace foundation::storage::provider;
    return numberOf(Exception(code, StorageIRI::parse("file:///a.zip")));
}

MountOptions set(std::string_view list, MountOptions options = {}) {
    storage::mount::setMountOptions(options, list);
    return options;
}

} // namespace

TEST(SystemFailure, EachFailureOfAProviderIsOneThatProgramsKnow) {
    EXPECT_EQ(numberOf(ErrorCode::FolderNotEmpty), ENOTEMPTY);
    EXPECT_EQ(numberOf(ErrorCode::NotWritable), EROFS);
    EXPECT_EQ(numberOf(ErrorCode::AlreadyExists), EEXIST);
    EXPECT_EQ(numberOf(ErrorCode::NotFound), ENOENT);
    EXPECT_EQ(numberOf(ErrorCode::NotSupported), ENOTSUP);
    EXPECT_EQ(numberOf(ErrorCode::AccessDenied), EACCES);
    EXPECT_EQ(numberOf(ErrorCode::InvalidArgument), EINVAL);
    EXPECT_EQ(numberOf(ErrorCode::NoSpace), ENOSPC);
    EXPECT_EQ(numberOf(ErrorCode::Busy), EBUSY);
    EXPECT_EQ(numberOf(ErrorCode::ContainerUnreadable), EIO);
    EXPECT_EQ(numberOf(ErrorCode::LocalFileSystem), EIO);
}

TEST(SystemFailure, WhatTheSystemRefusedKeepsItsNumber) {
    EXPECT_EQ(numberOf(std::system_error(EMLINK, std::generic_category())), EMLINK);
    EXPECT_EQ(numberOf(std::system_error(ENOSPC, std::system_category())), ENOSPC);
    const std::error_code noDescriptors(EMFILE, std::generic_category());
    EXPECT_EQ(numberOf(fl::filesystem::FsysExceptionBase("open", "/tmp/x", noDescriptors)), EMFILE);
}

TEST(SystemFailure, WhatHasNoNumberOfTheSystemIsAnErrorOfInputAndOutput) {
    EXPECT_EQ(numberOf(std::system_error(std::make_error_code(std::future_errc::no_state))), EIO);
    EXPECT_EQ(numberOf(std::runtime_error("broken")), EIO);
    EXPECT_EQ(numberOf(5), EIO);
    EXPECT_EQ(numberOf(std::bad_alloc()), ENOMEM);
}

TEST(SystemFailure, TheCauseIsTheTextOfTheFailure) {
    EXPECT_EQ(causeOf(std::make_exception_ptr(std::runtime_error("it broke"))), "it broke");
    EXPECT_EQ(causeOf(std::make_exception_ptr(5)), "an unknown failure");
}

TEST(TimesOfAMount, AreSecondsAndNanosecondsThatNeverCountBackwards) {
    using namespace boost::posix_time;
    const ptime epoch(boost::gregorian::date(1970, 1, 1));
    const auto of = [](const ptime& time) {
        const auto stamp = storage::mount::toTimespec(time);
        return std::pair(stamp.tv_sec, stamp.tv_nsec);
    };
    EXPECT_EQ(of(epoch + milliseconds(1500)), std::pair(time_t(1), 500'000'000L));
    EXPECT_EQ(of(epoch - milliseconds(1500)), std::pair(time_t(-2), 500'000'000L));
    EXPECT_EQ(of(epoch - seconds(2)), std::pair(time_t(-2), 0L));
    EXPECT_EQ(of(ptime(not_a_date_time)), std::pair(time_t(0), 0L));
}

TEST(OptionsOfAMount, SizesHaveUnits) {
    EXPECT_EQ(set("space=12").spaceLimit, 12U);
    EXPECT_EQ(set("space=12K").spaceLimit, 12U << 10);
    EXPECT_EQ(set("space=12M").spaceLimit, 12U << 20);
    EXPECT_EQ(set("space=12G").spaceLimit, std::uint64_t(12) << 30);
    EXPECT_EQ(set("space=17179869183G").spaceLimit, std::uint64_t(17179869183) << 30);
    EXPECT_EQ(set("space=18446744073709551615").spaceLimit, std::numeric_limits<std::uint64_t>::max());
}

TEST(OptionsOfAMount, TheLastOneOfAKindCounts) {
    EXPECT_TRUE(set("ro").readOnly);
    EXPECT_FALSE(set("ro,rw").readOnly);
    EXPECT_TRUE(set("rw,,ro,").readOnly);
    EXPECT_EQ(set("save_after=5,save_after=0.25").saveAfter, std::chrono::milliseconds(250));
}

TEST(OptionsOfAMount, WhatIsUnknownOrHasNoSuchValueIsNamed) {
    for (const std::string option : {"nonsense",
                                     "ro=1",
                                     "rw=",
                                     "uid",
                                     "uid=",
                                     "uid=me",
                                     "uid=-1",
                                     "uid=4294967296",
                                     "umask=8",
                                     "umask=1000",
                                     "space",
                                     "space=K",
                                     "space=1T",
                                     "space=17179869184G",
                                     "space=1.5M",
                                     "save_after=",
                                     "save_after=-1",
                                     "save_after=1s",
                                     "save_within=nan",
                                     "save_within=1e10"}) {
        try {
            set("ro," + option);
            ADD_FAILURE() << option << " was taken";
        } catch (const std::invalid_argument& failure) {
            EXPECT_EQ(failure.what(), "the mount option \"" + option + "\" is unknown or has no such value");
        }
    }
}
