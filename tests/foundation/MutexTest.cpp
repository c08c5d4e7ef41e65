#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using foundation::core::ConditionVariable;
using foundation::core::Mutex;
using foundation::core::MutexLock;
using namespace std::chrono_literals;

/// Whether another thread could take the mutex at this moment.
bool isFree(Mutex& mutex) {
    bool free = false;
    std::thread other([&mutex, &free] {
        if (mutex.try_lock()) {
            free = true;
            mutex.unlock();
        }
    });
    other.join();
    return free;
}

class Queue {
public:
    void push(int value) KX_EXCLUDES(m_mutex) {
        {
            const MutexLock lock(m_mutex);
            m_values.push_back(value);
        }
        m_notEmpty.notifyOne();
    }

    int pop() KX_EXCLUDES(m_mutex) {
        const MutexLock lock(m_mutex);
        while (m_values.empty()) {
            m_notEmpty.wait(m_mutex);
        }
        const int value = m_values.front();
        m_values.pop_front();
        return value;
    }

private:
    Mutex m_mutex;
    ConditionVariable m_notEmpty;
    std::deque<int> m_values KX_GUARDED_BY(m_mutex);
};

TEST(MutexLock, HoldsTheMutexToTheEndOfTheBlock) {
    Mutex mutex;
    {
        const MutexLock lock(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(MutexLock, CanLetGoAndTakeAgain) {
    Mutex mutex;
    {
        MutexLock lock(mutex);
        lock.unlock();
        EXPECT_TRUE(isFree(mutex));
        lock.lock();
        EXPECT_FALSE(isFree(mutex));
        lock.unlock();
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, KeepsThreadsFromLosingEachOthersCounts) {
    Mutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&mutex, &count] {
            for (int j = 0; j < 10'000; ++j) {
                const MutexLock lock(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(40'000, count);
}

TEST(ConditionVariable, HandsEveryValueFromOneThreadToAnother) {
    Queue queue;
    std::thread producer([&queue] {
        for (int i = 1; i <= 1000; ++i) {
            queue.push(i);
        }
    });
    int sum = 0;
    for (int i = 0; i < 1000; ++i) {
        sum += queue.pop();
    }
    producer.join();
    EXPECT_EQ(500'500, sum);
}

TEST(ConditionVariable, WaitUntilReturnsFalseWhenTheTimeIsOverAndHoldsTheMutexAgain) {
    Mutex mutex;
    ConditionVariable never;
    const MutexLock lock(mutex);
    const auto deadline = std::chrono::steady_clock::now() + 20ms;
    while (never.waitUntil(mutex, deadline)) {
    }
    EXPECT_GE(std::chrono::steady_clock::now(), deadline);
    EXPECT_FALSE(isFree(mutex));
}

TEST(ConditionVariable, HoldsTheMutexAgainAfterAPredicateHasThrown) {
    Mutex mutex;
    ConditionVariable condition;
    const MutexLock lock(mutex);
    EXPECT_THROW(condition.wait(mutex, []() -> bool { throw std::runtime_error("no"); }), std::runtime_error);
    EXPECT_FALSE(isFree(mutex));
}

} // namespace
