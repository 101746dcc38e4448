#include "tests/driver/ScriptedChain.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>

namespace velorine::test {
namespace {

struct Threading {
    TestClock::Mode mode;
    std::uint32_t seed;
};

/// Several threads write, edit, ask and turn the volume at once.
class EditStress : public testing::TestWithParam<Threading> {};

TEST_P(EditStress, NothingIsLostRepeatedOrHeardOutOfOrder) {
    const TestClock::Mode mode = GetParam().mode;
    const std::uint32_t seed = GetParam().seed;
    ChainRig rig{mode, seed};
    rig.chain.start();
    std::atomic<bool> done{false};
    std::atomic<int> edits{0};
    {
        std::vector<std::unique_ptr<Worker>> workers;
        workers.push_back(std::make_unique<Worker>([&] {
            std::mt19937 random{seed + 1};
            for (int i = 0; i < 150; ++i) {
                rig.write(1 + static_cast<int>(random() % 2500));
                while (rig.chain.writtenEnd() - rig.chain.output.played() > ticksPerSecond)
                    kernel().sleep(10);
                if (random() % 8 == 0) kernel().sleep(static_cast<int>(random() % 60));
            }
            done.store(true);
        }));
        for (std::uint32_t editor = 0; editor < 2; ++editor)
            workers.push_back(std::make_unique<Worker>([&, editor] {
                std::mt19937 random{seed + 10 + editor};
                FxStage* const stops[] = {nullptr, &rig.chain.middle, &rig.chain.last};
                while (!done.load()) {
                    const int margin = 20 + static_cast<int>(random() % 300);
                    FxChainEdit{rig.chain, margin, stops[random() % 3]}.commit();
                    edits.fetch_add(1);
                    kernel().sleep(static_cast<int>(random() % 100));
                }
            }));
        workers.push_back(std::make_unique<Worker>([&] {
            FxTime before = 0;
            while (!done.load()) {
                const FxTime now = rig.chain.output.played();
                EXPECT_GE(now, before);
                before = now;
                rig.chain.output.setVolume(0.5);
                rig.chain.output.setPan(0.1);
                EXPECT_GE(rig.chain.output.bufferedMs(), 0);
                kernel().sleep(3);
            }
        }));
    }
    EXPECT_GT(edits.load(), 20);
    EXPECT_TRUE(rig.chain.drain(-1));
    rig.clock.advance(200);
    EXPECT_EQ(rig.heard(), rig.all());
    EXPECT_EQ(rig.chain.editLock.users(), 0);
}

std::vector<Threading> threadings() {
    std::vector<Threading> all;
    for (std::uint32_t seed = 0; seed < 24; ++seed)
        all.push_back({TestClock::Mode::serial, seed});
    for (std::uint32_t seed = 0; seed < 8; ++seed)
        all.push_back({TestClock::Mode::parallel, seed});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Threads, EditStress, testing::ValuesIn(threadings()),
                         [](const auto& tested) {
                             return (tested.param.mode == TestClock::Mode::serial ? "serial"
                                                                                  : "parallel") +
                                    std::to_string(tested.param.seed);
                         });

} // namespace
} // namespace velorine::test
