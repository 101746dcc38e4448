#include "kestrix/dsphost/WaDspStage.h"

#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "foundation/PriorityScope.h"
#include "foundation/Thread.h"
#include "tests/dsphost/DspRig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>

namespace velorine::test {
namespace {

/// Expects what `writeCounting` wrote, times `gain`, from `first` on.
void expectCounting(const DspChain& chain, std::size_t first, std::size_t end, int gain) {
    ASSERT_GE(chain.delivered.size(), end);
    for (std::size_t i = first; i < end; ++i) {
        ASSERT_EQ(chain.delivered[i].sample<std::int16_t>(0), static_cast<int>(i) * gain) << i;
        ASSERT_EQ(chain.delivered[i].sample<std::int16_t>(1), static_cast<int>(i) * -gain) << i;
    }
}

// -- Without a module --------------------------------------------------------------------------

TEST(WaDspStage, DisabledItHandsBlocksOnAndStartsNothing) {
    DspChain chain;
    chain.loadModule(0);
    expectPassesOn<WaDspStage>(chain);
    EXPECT_EQ(chain.operations(), "");
    EXPECT_FALSE(isLoaded(VELORINE_TEST_PLUGIN));
}

TEST(WaDspStage, WithoutAModuleItHandsBlocksOn) {
    DspChain chain;
    chain.stage.enable = true;
    expectPassesOn<WaDspStage>(chain);
    EXPECT_FALSE(chain.stage.hasModule());
}

TEST(WaDspStage, IsDisabledUntilTheStoreSaysOtherwise) {
    MemoryStore store;
    WaDspStage saved;
    EXPECT_FALSE(saved.enable);
    saved.enable = true;
    RegistryNode writing{store, RegistryNode::write};
    saved.exchangeSettings(writing);
    RegistryNode reading{store, RegistryNode::read};
    std::uint32_t value = 7;
    reading.exchangeDword("WaDsp", "enable", value);
    EXPECT_EQ(value, 1U);
    WaDspStage loaded;
    loaded.exchangeSettings(reading);
    EXPECT_TRUE(loaded.enable);
}

TEST(WaDspStage, ConfiguringADisabledStageDoesNothing) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.configure();
    for (const unsigned message : {dspMessage::init, dspMessage::config, dspMessage::quit,
                                   dspMessage::format, dspMessage::begin})
        chain.stage.send(message);
    EXPECT_EQ(chain.operations(), "");
    EXPECT_FALSE(chain.stage.hasModule());
}

TEST(WaDspStage, MessagesWithoutAModuleDoNothing) {
    DspChain chain;
    chain.stage.enable = true;
    chain.stage.configure();
    for (unsigned message = 0x400; message < 0x40A; ++message)
        chain.stage.send(message);
    EXPECT_FALSE(chain.stage.hasModule());
}

// -- The plug-in's calls -----------------------------------------------------------------------

TEST(WaDspStage, TheModuleComesAndGoesWithTheSwitch) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(1152);
    chain.pumpAll();
    EXPECT_TRUE(chain.stage.hasModule());
    EXPECT_TRUE(isLoaded(VELORINE_TEST_PLUGIN));
    EXPECT_EQ(chain.operations(), "im");
    chain.stage.enable = false;
    chain.writeCounting(10);
    chain.pumpAll();
    EXPECT_FALSE(chain.stage.hasModule());
    EXPECT_FALSE(isLoaded(VELORINE_TEST_PLUGIN));
    EXPECT_EQ(chain.operations(), "imq");
    chain.stage.enable = true;
    chain.writeCounting(2000);
    chain.pumpAll();
    EXPECT_EQ(chain.operations(), "imqim");
}

TEST(WaDspStage, TheModuleEndsWithTheStage) {
    DspLog log;
    {
        WaDspStage stage;
        stage.loader = [&log] { return pluginOf(0, log.plugin); };
        stage.enable = true;
        stage.configure();
        EXPECT_TRUE(isLoaded(VELORINE_TEST_PLUGIN));
        EXPECT_EQ(log.operations(), "ic");
    }
    EXPECT_EQ(log.operations(), "icq");
    EXPECT_FALSE(isLoaded(VELORINE_TEST_PLUGIN));
}

TEST(WaDspStage, AllButTheSamplesIsTheWindowThreads) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(1152);
    chain.pumpAll();
    chain.stage.configure();
    chain.stage.send(dspMessage::format);
    chain.stage.enable = false;
    chain.stage.configure();
    ASSERT_EQ(chain.operations(), "imcmq");
    const PluginLog& log = chain.log();
    const std::uint32_t own = kernel().currentThreadId();
    EXPECT_EQ(log.calls[1].thread, own);
    EXPECT_NE(log.calls[0].thread, own);
    for (const int call : {2, 3, 4})
        EXPECT_EQ(log.calls[call].thread, log.calls[0].thread) << call;
}

TEST(WaDspStage, TheModuleLearnsItsWindowAndLibraryFirst) {
    static void* library = nullptr;
    static winampDSPModule* seen = nullptr;
    library = seen = nullptr;
    DspChain chain;
    chain.loadModule(0);
    const auto load = chain.stage.loader;
    chain.stage.loader = [&] {
        const WaDspStage::Plugin plugin = load();
        library = plugin.library;
        seen = plugin.module;
        return plugin;
    };
    chain.stage.enable = true;
    chain.stage.configure();
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen->hDllInstance, library);
    EXPECT_EQ(seen->hwndParent, chain.stage.parentWindow);
}

TEST(WaDspStage, AModuleThatRefusesIsDroppedWithItsLibrary) {
    DspChain chain;
    chain.loadModule(0);
    chain.log().initAnswer = 1;
    chain.stage.enable = true;
    chain.writeCounting(2000);
    chain.pumpAll();
    EXPECT_EQ(chain.operations(), "i");
    EXPECT_FALSE(chain.stage.hasModule());
    EXPECT_FALSE(isLoaded(VELORINE_TEST_PLUGIN));
    expectCounting(chain, 0, 2000, 1); // passed on
}

TEST(WaDspStage, ALibraryWithoutThatModuleIsGivenBack) {
    DspChain chain;
    chain.loadModule(2);
    chain.stage.enable = true;
    chain.writeCounting(2000);
    chain.pumpAll();
    EXPECT_EQ(chain.operations(), "");
    EXPECT_FALSE(isLoaded(VELORINE_TEST_PLUGIN));
    expectCounting(chain, 0, 2000, 1);
}

TEST(WaDspStage, SayingTheFormatGivesNoFrames) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(1152, 44100);
    chain.pumpAll();
    chain.stage.send(dspMessage::format);
    ASSERT_EQ(chain.operations(), "imm");
    const PluginLog::Call& call = chain.log().calls[2];
    EXPECT_EQ(std::tuple(call.frames, call.bits, call.channels, call.rate),
              std::tuple(0, 16, 2, 44100));
}

// -- Audio -------------------------------------------------------------------------------------

TEST(WaDspStage, SamplesGoThroughTheModuleInChunksOf1152) {
    DspChain chain;
    chain.loadModule(0);
    chain.log().gain = 3.0;
    chain.stage.enable = true;
    for (const int frames : {100, 3000, 7, 900})
        chain.writeCounting(frames);
    chain.pumpAll();
    EXPECT_EQ(chain.blockFrames, (std::vector<int>{1152, 1152, 1152}));
    expectCounting(chain, 0, 3456, 3);
    for (int i = 1; i < chain.log().count; ++i)
        EXPECT_EQ(chain.log().calls[i].frames, 1152);
    EXPECT_EQ(chain.last.format, formatOf(sampleType::int16, 2, 48000));
    EXPECT_EQ(chain.last.timeStart, 480'000);
    EXPECT_EQ(chain.last.timeEnd, 719'999); // each block's own end is rounded down
    EXPECT_EQ(chain.last.srcStart, 2304 << 16);
    EXPECT_EQ(chain.last.srcEnd, 3456 << 16);
}

TEST(WaDspStage, TheTailOfAStreamWaits) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(1151);
    chain.pumpAll();
    EXPECT_TRUE(chain.delivered.empty());
    EXPECT_EQ(chain.stage.nextInput, 0);
    chain.writeCounting(1);
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.size(), 1152U);
}

TEST(WaDspStage, TheModuleMayChangeTheLength) {
    DspChain chain;
    chain.loadModule(1);
    chain.stage.enable = true;
    chain.writeCounting(2304);
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 4608U);
    EXPECT_EQ(chain.blockFrames, (std::vector<int>{2304, 2304}));
    for (std::size_t i = 0; i < 4608; ++i)
        ASSERT_EQ(chain.delivered[i].sample<std::int16_t>(0), static_cast<int>(i / 2));
    EXPECT_EQ(chain.last.srcEnd, 2304 << 16);
}

TEST(WaDspStage, MoreThanThereIsRoomForIsCutAndLessThanNothingIsNothing) {
    for (const auto& [answer, frames] :
         {std::pair{1'000'000, 11'520}, {11'521, 11'520}, {-5, 0}, {0, 0}}) {
        DspChain chain;
        chain.loadModule(0);
        chain.log().answers = true;
        chain.log().answer = answer;
        chain.stage.enable = true;
        chain.writeCounting(1152);
        chain.pumpAll();
        ASSERT_EQ(chain.blockFrames, (std::vector<int>{frames})) << answer;
        EXPECT_EQ(chain.last.format, formatOf(sampleType::int16, 2, 48000));
        EXPECT_EQ(chain.stage.nextInput, 1152);
        EXPECT_EQ(chain.last.srcEnd, 1152 << 16);
    }
}

TEST(WaDspStage, ANewFormatIsSaidFirstAtNormalPriority) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(1152, 48000);
    chain.writeCounting(1152, 48000);
    chain.writeCounting(2304, 44100);
    const int before = kernel().currentPriority();
    kernel().setCurrentPriority(priorityHighest);
    chain.pumpAll();
    EXPECT_EQ(kernel().currentPriority(), priorityHighest);
    kernel().setCurrentPriority(before);
    ASSERT_EQ(chain.operations(), "immmmm"); // of the first format nothing was to be said
    const int frames[] = {1152, 1152, 0, 1152, 1152};
    const int rates[] = {48000, 48000, 44100, 44100, 44100};
    for (int i = 0; i < 5; ++i) {
        const PluginLog::Call& call = chain.log().calls[i + 1];
        EXPECT_EQ(std::tuple(call.frames, call.rate), std::tuple(frames[i], rates[i])) << i;
        EXPECT_EQ(call.priority, i == 2 ? priorityNormal : priorityHighest) << i;
        EXPECT_EQ(std::tuple(call.bits, call.channels), std::tuple(16, 2));
    }
    expectCounting(chain, 0, 4608, 1);
}

TEST(WaDspStage, EveryFormatReachesTheModuleAs16BitStereo) {
    std::mt19937 random{1};
    for (int type = 0; type < 7; ++type) {
        for (const int channels : {1, 2, 4}) {
            DspChain chain;
            chain.loadModule(0);
            chain.stage.enable = true;
            chain.writeInPieces(formatOf(type, channels, 32'000),
                                noiseBytes(type, 4608 * channels, random), random);
            chain.pumpAll();
            ASSERT_EQ(chain.delivered.size(), 4608U);
            EXPECT_EQ(chain.last.format, formatOf(sampleType::int16, 2, 32'000));
            for (std::size_t i = 0; channels == 1 && i < 4608; ++i) // but for the dither
                ASSERT_NEAR(chain.delivered[i].sample<std::int16_t>(0),
                            chain.delivered[i].sample<std::int16_t>(1), 3);
        }
    }
}

TEST(WaDspStage, AStatelessModuleRepeatsAfterRewinds) {
    std::mt19937 random{2};
    DspChain chain;
    chain.loadModule(0);
    chain.log().gain = -1.0;
    chain.stage.enable = true;
    for (int frames = 0; frames < 30'000;) {
        const int piece = 1 + static_cast<int>(random() % 3000);
        chain.writeCounting(piece);
        frames += piece;
    }
    chain.pumpWithRewinds(random, 15, 6000, 28'000);
    expectCounting(chain, 0, chain.delivered.size(), -1);
    EXPECT_GT(chain.delivered.size(), 28'000U);
}

TEST(WaDspStage, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    WaDspStage stage;
    for (const bool on : {false, true}) {
        stage.enable = on;
        EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    }
    appendTo(ring, countingBlock(arena, 10'000, 0, 0, 100));
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

// -- Threads -----------------------------------------------------------------------------------

TEST(WaDspStage, TheAudioGoesOnWhileADialogIsOpen) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(2304);
    chain.log().context = &chain;
    chain.log().duringConfig = [](void* context) {
        auto& open = *static_cast<DspChain*>(context);
        open.pumpAll();
        open.stage.enable = false; // acted on once the dialog is closed
        open.writeCounting(100);
        open.pumpAll();
    };
    chain.stage.configure();
    EXPECT_EQ(chain.operations(), "icmm");
    EXPECT_EQ(chain.delivered.size(), 2404U);
    EXPECT_TRUE(chain.stage.hasModule());
    chain.writeCounting(100);
    chain.pumpAll();
    EXPECT_EQ(chain.operations(), "icmmq");
    EXPECT_FALSE(chain.stage.hasModule());
    expectCounting(chain, 0, 2504, 1);
}

/// Switches and configures a stage for as long as it runs.
class Switcher final : public Thread {
public:
    explicit Switcher(WaDspStage& dsp) : stage(dsp) { start(false); }
    ~Switcher() override { join(); }

    std::uint32_t run() override {
        while (!stop.isSet()) {
            stage.enable = !stage.enable;
            stage.configure();
            ++rounds;
        }
        return 0;
    }

    std::atomic<int> rounds{0};

private:
    WaDspStage& stage;
};

TEST(WaDspStage, MayBeSwitchedWhileTheAudioRuns) {
    DspChain chain;
    chain.loadModule(0);
    chain.log().count = PluginLog::capacity; // two threads at once are not for the log
    {
        Switcher switcher{chain.stage};
        for (int i = 0; i < 300 || switcher.rounds < 20; ++i) {
            if (i < 300) chain.writeCounting(100);
            chain.pumpAll();
        }
    }
    chain.stage.enable = false;
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.size(), 30'000U);
    expectCounting(chain, 0, 30'000, 1);
}

} // namespace
} // namespace velorine::test
