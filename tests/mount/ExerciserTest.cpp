#include "FileExerciser.h"
#include "Mounted.h"

using namespace kx::test;

namespace {

class MountExerciserTest : public Mounted, public ::testing::WithParamInterface<std::uint32_t> {};

} // namespace

TEST_P(MountExerciserTest, AFileIsWhatAModelOfItSays) {
    mountEmpty("save_after=0.2");
    FileExerciser exerciser(in("exercised"), GetParam(),
                            [this](const std::string& name) { return stored(name); });
    EXPECT_EQ(exerciser.run(10'000), "") << "seed " << GetParam();
    unmount();
    EXPECT_EQ(names("plans.zip"), (Names{exerciser.file().filename().string()}));
    EXPECT_TRUE(stored(exerciser.file().filename().string()) == exerciser.model());
}

INSTANTIATE_TEST_SUITE_P(Seeds, MountExerciserTest, ::testing::Range(1U, 11U));
