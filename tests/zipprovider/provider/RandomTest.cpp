#include "RandomRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <vector>

namespace kx::test {

namespace {

unsigned long numberFrom(const char* variable, unsigned long otherwise) {
    const char* text = std::getenv(variable);
    return text != nullptr ? std::strtoul(text, nullptr, 10) : otherwise;
}

/// What goes wrong when the steps are made from the begin, and after how many of them; nothing when all is
/// well.
struct Complaint {
    std::size_t steps;
    std::string text;
};

std::optional<Complaint> replay(RandomPlace place, const std::vector<Step>& steps) {
    RandomRun run(place);
    std::size_t made = 0;
    try {
        for (const auto& step : steps) {
            ++made;
            run.apply(step);
        }
        run.finish();
    } catch (const std::exception& error) {
        return Complaint{made, error.what()};
    }
    return std::nullopt;
}

/// Leaves out whatever can be left out of a failing run within a minute.
std::vector<Step> shortened(RandomPlace place, std::vector<Step> steps) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    for (std::size_t chunk = steps.size() / 2; chunk > 0; chunk /= 2) {
        for (std::size_t at = 0; at < steps.size() && std::chrono::steady_clock::now() < end;) {
            auto fewer = steps;
            const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
            fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(chunk, steps.size() - at)));
            if (const auto complaint = replay(place, fewer)) {
                fewer.resize(complaint->steps);
                steps = std::move(fewer);
            } else {
                at += chunk;
            }
        }
    }
    return steps;
}

std::string report(RandomPlace place, unsigned long seed, std::vector<Step> steps) {
    const auto length = steps.size();
    steps = shortened(place, std::move(steps));
    const auto complaint = replay(place, steps);
    std::ostringstream text;
    text << "KX_RANDOM_SEED=" << seed << ", " << length << " steps, shortened to these:\n";
    for (const auto& step : steps) {
        text << "    " << step << '\n';
    }
    text << "after which: " << (complaint ? complaint->text : "all is well this time");
    return text.str();
}

class RandomOperations : public testing::TestWithParam<RandomPlace> {};

/// KX_RANDOM_STEPS sets the number of steps, KX_RANDOM_SEED the first seed, KX_RANDOM_SECONDS the time limit.
TEST_P(RandomOperations, DoWhatAPlainModelDoes) {
    const auto steps = numberFrom("KX_RANDOM_STEPS", 2000);
    const auto firstSeed = numberFrom("KX_RANDOM_SEED", 1);
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(numberFrom("KX_RANDOM_SECONDS", 20));
    constexpr std::size_t stepsOfARun = 250;
    std::size_t made = 0;
    for (auto seed = firstSeed; made < steps && std::chrono::steady_clock::now() < end; ++seed) {
        std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
        RandomRun run(GetParam());
        std::vector<Step> done;
        try {
            for (std::size_t i = 0; i < stepsOfARun; ++i) {
                done.push_back(randomStep(random, run.model(), seed % 2 == 0));
                run.apply(done.back());
            }
            run.finish();
        } catch (const std::exception& error) {
            FAIL() << error.what() << '\n' << report(GetParam(), seed, std::move(done));
        }
        made += done.size();
    }
    std::cout << "made " << made << " steps from seed " << firstSeed << " on\n";
    EXPECT_GT(made, 0u);
}

INSTANTIATE_TEST_SUITE_P(Containers, RandomOperations,
                         testing::Values(RandomPlace::Memory, RandomPlace::InPlaceFile,
                                         RandomPlace::InsideAnotherArchive),
                         testing::PrintToStringParamName());

} // namespace

} // namespace kx::test
