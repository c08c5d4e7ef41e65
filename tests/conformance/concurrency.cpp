#include "ProviderConformance.h"

#include <support/contents.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>

namespace kx::test {

namespace {

/// Runs `work(0)` to `work(count - 1)` at once and throws what one of them threw.
template <typename Work>
void atOnce(int count, Work work) {
    std::mutex mutex;
    std::exception_ptr failure;
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&, number] {
            try {
                work(number);
            } catch (...) {
                const std::lock_guard lock(mutex);
                failure = std::current_exception();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace

TEST_P(ConcurrencyConformance, ThreadsWorkOnDifferentFilesAtOnce) {
    constexpr int threads = 4;
    constexpr int rounds = 5;
    atOnce(threads, [this](int number) {
        const ustring folder(1, static_cast<char16_t>(u'a' + number));
        makeFolder(folder);
        for (int round = 0; round < rounds; ++round) {
            const auto name = folder + u"/" + static_cast<char16_t>(u'0' + round);
            const auto bytes = randomBytes(5000, static_cast<unsigned>(number * rounds + round));
            write(name, bytes);
            EXPECT_TRUE(read(name) == bytes);
            EXPECT_GE(names(folder).size(), static_cast<std::size_t>(round) + 1);
        }
        storage().removeFile(at(folder + u"/0"));
        storage().moveFile(at(folder + u"/1"), at(folder + u"/moved"), MoveOption::FailIfExists);
    });
    tested().reopen();
    EXPECT_EQ(names(), (Names{u"a", u"b", u"c", u"d"}));
    for (int number = 0; number < threads; ++number) {
        const ustring folder(1, static_cast<char16_t>(u'a' + number));
        EXPECT_EQ(names(folder), (Names{u"2", u"3", u"4", u"moved"}));
        EXPECT_TRUE(read(folder + u"/moved") ==
                    randomBytes(5000, static_cast<unsigned>(number * rounds + 1)));
    }
}

TEST_P(ConcurrencyConformance, OnlyOneOfManyCreatesAFolderAndRecursiveCreationIsNoError) {
    std::atomic<int> created = 0;
    atOnce(4, [&](int) {
        storage().createFolderRecursive(at(u"a/b/c"));
        try {
            storage().createFolder(at(u"one"));
            ++created;
        } catch (const provider::Exception& failure) {
            EXPECT_EQ(failure.getErrorCode(), ErrorCode::AlreadyExists);
        }
    });
    EXPECT_EQ(created, 1);
    EXPECT_TRUE(storage().isFolder(at(u"a/b/c")));
}

TEST_P(ConcurrencyConformance, ReadersRunWhileAWriterChangesOtherFiles) {
    const auto bytes = randomBytes(100'000, 21);
    write(u"stable", bytes);
    atOnce(4, [&](int number) {
        for (int round = 0; round < 5; ++round) {
            if (number == 0) {
                write(u"changing", randomBytes(1000, static_cast<unsigned>(round)));
            } else {
                EXPECT_TRUE(read(u"stable") == bytes);
                EXPECT_TRUE(storage().isFile(at(u"stable")));
                EXPECT_GE(names().size(), 1U);
            }
        }
    });
    EXPECT_EQ(names(), (Names{u"changing", u"stable"}));
}

} // namespace kx::test
