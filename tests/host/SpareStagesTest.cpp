#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/host/FeedRig.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace velorine::test {
namespace {

std::vector<FxStage*> spareStages(FxEngine& engine) {
    return {&engine.testSignal, &engine.mixer,   &engine.splice, &engine.resampleB,
            &engine.dspHost,    &engine.limiter, &engine.peakEq};
}

TEST(SpareStages, StandOutsideTheChain) {
    FeedRig rig;
    rig.engine.start(nullptr, false);
    std::vector<FxStage*> chain;
    for (const FxChainEntry& entry : rig.engine.chain)
        chain.push_back(entry.stage);
    EXPECT_EQ(chain,
              (std::vector<FxStage*>{&rig.engine.input, &rig.engine.fader, &rig.engine.kestrix,
                                     &rig.engine.resampleA, &rig.engine.tail}));
    for (const FxStage* const stage : spareStages(rig.engine)) {
        EXPECT_EQ(stage->inRing, nullptr);
        EXPECT_EQ(stage->outRing, nullptr);
    }
}

/// What is heard of a short track.
std::vector<std::int16_t> heardWith(bool spareStagesOn) {
    FeedRig rig;
    rig.engine.start(nullptr, false);
    rig.engine.testSignal.enable = spareStagesOn;
    rig.engine.mixer.enable = spareStagesOn;
    rig.engine.splice.ratio = spareStagesOn ? 0.5 : 1.0;
    rig.engine.resampleB.enable = spareStagesOn;
    rig.engine.resampleB.speed = 2.0;
    rig.engine.dspHost.enable = spareStagesOn;
    rig.engine.limiter.enable = spareStagesOn;
    rig.engine.peakEq.enable = spareStagesOn;
    rig.engine.secondSpeed = spareStagesOn ? 2.0 : 1.0;
    rig.open(48000, 2, 16);
    for (int i = 0; i < 10; ++i)
        rig.write(counting<std::int16_t>(4800, 1 + 300 * i));
    rig.engine.drain(5000);
    rig.clock.advance(500);
    auto heard = rig.sound.heard<std::int16_t>();
    heard.erase(std::remove(heard.begin(), heard.end(), 0), heard.end()); // pads and pauses
    return heard;
}

TEST(SpareStages, ChangeNothingOfWhatIsHeard) {
    const auto heard = heardWith(true);
    EXPECT_EQ(heard.size(), 48'000U);
    EXPECT_EQ(heard, heardWith(false));
}

TEST(SpareStages, NoSettingsPassReachesThem) {
    MemoryStore store;
    RegistryNode writing{store, RegistryNode::write};
    bool on = true;
    writing.exchangeBool("Mixer", "enable", on);
    writing.exchangeBool("WaDsp", "enable", on);
    on = false;
    writing.exchangeBool("Limiter", "enable", on);

    FeedRig rig;
    RegistryNode reading{store, RegistryNode::read};
    rig.engine.exchangeSettings(reading);
    EXPECT_FALSE(rig.engine.mixer.enable);
    EXPECT_FALSE(rig.engine.dspHost.enable);
    EXPECT_TRUE(rig.engine.limiter.enable);

    MemoryStore saved;
    RegistryNode saving{saved, RegistryNode::write};
    rig.engine.exchangeSettings(saving);
    for (const char* const section : {"Mixer", "WaDsp", "Limiter"})
        EXPECT_FALSE(saving.valueExists(section, "enable")) << section;
    EXPECT_TRUE(saving.valueExists("Resample", "enable"));
}

TEST(SpareStages, ConfiguringWithoutAPluginDoesNothing) {
    TestHost host;
    host.open(48000, 2, 16);
    host.out.Config(nullptr);
    host.write(std::vector<std::int16_t>(2 * 96'000, 9000));
    host.out.Config(nullptr);
    EXPECT_EQ(host.out.GetWrittenTime(), 2000);
    EXPECT_TRUE(host.playOut());
}

} // namespace
} // namespace velorine::test
