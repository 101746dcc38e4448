#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/resample/ResampleRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>
#include <random>
#include <tuple>

namespace velorine::test {
namespace {

constexpr double pi = std::numbers::pi;

double toneAt(double frame) {
    return 0.5 * std::sin(2.0 * pi * 0.01 * frame);
}

// -- Blocks ------------------------------------------------------------------------------------

TEST(ResampleStage, ComesInBlocksOf128To512Frames) {
    ResampleRig rig{48000.0};
    rig.feed(20'000, 44100, toneAt);
    int most = 0;
    while (rig.process()) {
        most = std::max(most, rig.out.frames());
        ASSERT_GE(rig.out.frames(), 128);
        ASSERT_EQ(rig.out.format.type, sampleType::int32);
        ASSERT_EQ(rig.out.format.channels, 2);
        ASSERT_EQ(rig.out.format.rate, 48000);
    }
    EXPECT_EQ(most, 512);
}

TEST(ResampleStage, FewerThan128FramesWaitForMore) {
    ResampleRig rig{48000.0};
    // 18 taps and 5 more ahead: n = floor((left - 23) / 1).
    rig.feed(23 + 127, 48000, toneAt);
    EXPECT_FALSE(rig.process());
    EXPECT_EQ(rig.stage.framesOut, 0);
    rig.feed(1, 48000, toneAt);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 128);
}

TEST(ResampleStage, NothingIsMadeForNothing) {
    ResampleRig rig{48000.0};
    EXPECT_FALSE(rig.process());
    rig.feed(20'000, 44100, toneAt);
    EXPECT_FALSE(rig.process(0));
}

TEST(ResampleStage, TheSameRateStillPassesTheFilter) {
    ResampleRig rig{0.0}; // the stream's own
    rig.feed(5000, 37'800, toneAt);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.format.rate, 37'800);
    const auto samples = samplesOf<std::int32_t>(rig.out);
    for (int i = 100; i < 500; ++i)
        ASSERT_NEAR(samples[static_cast<std::size_t>(2 * i)] * 0x1p-31, toneAt(i), 1e-6) << i;
    EXPECT_EQ(rig.out.srcEnd, std::int64_t{512} << 16);
}

TEST(ResampleStage, FramesLieWhereTheRatioPutsThem) {
    const struct {
        int from;
        double to, speed;
    } rows[] = {{44100, 48000, 1.0},   {48000, 44100, 1.0}, {96000, 48000, 1.0},
                {44100, 48000, 1.25},  {48000, 0, 0.8706},  {22050, 192000, 1.0},
                {48000, 47'123.5, 1.0}};
    for (const auto& row : rows) {
        ResampleRig rig{row.to, row.speed};
        rig.feed(30'000, row.from, toneAt);
        const auto out = rig.run();
        const double outRate = row.to > 0 ? row.to : row.from;
        const double ratio = row.from / outRate * row.speed;
        EXPECT_NEAR(static_cast<double>(out.size()) / 2.0, 30'000 / ratio, 160.0 + 60.0 / ratio);
        for (std::size_t i = 200; i + 200 < out.size() / 2; i += 17)
            ASSERT_NEAR(out[2 * i] * 0x1p-31, toneAt(static_cast<double>(i) * ratio), 1e-5)
                << row.from << " to " << row.to << " at " << row.speed << ", frame " << i;
    }
}

TEST(ResampleStage, TimesFollowTheInputAndNeverRunBack) {
    ResampleRig rig{48000.0, 1.1};
    rig.feed(40'000, 44100, toneAt);
    FxTime last = 0;
    double frames = 0.0;
    while (rig.process()) {
        ASSERT_EQ(rig.out.timeStart, last);
        ASSERT_GE(rig.out.timeEnd, rig.out.timeStart);
        last = rig.out.timeEnd;
        frames += rig.out.frames();
        // 1.1 s of the stream in each second of output
        ASSERT_NEAR(static_cast<double>(last), frames / 48000.0 * 1.1e7, 3.0);
    }
}

TEST(ResampleStage, AForeignFormatIsBroughtToStereo) {
    FxArena arena;
    FxRing ring;
    ResampleStage stage;
    stage.enable = true;
    appendTo(ring, blockOf(arena, formatOf(sampleType::int16, 1, 48000),
                           std::vector<std::int16_t>(2000, 12'000), 0, 400'000));
    FxBlock out;
    ASSERT_TRUE(stage.process(arena, out, ring, 4096));
    const auto samples = samplesOf<std::int32_t>(out);
    EXPECT_NEAR(samples[600] / 65536.0, 12'000.0, 0.1);
    EXPECT_EQ(samples[600], samples[601]);
}

TEST(ResampleStage, ARateChangeOfTheInputCountsWhenItIsReached) {
    ResampleRig rig{48000.0};
    rig.feed(2000, 48000, toneAt);
    rig.feed(20'000, 96000, toneAt);
    std::int64_t before = 0;
    while (rig.process()) {
        const double step =
            static_cast<double>(rig.out.srcEnd - rig.out.srcStart) / 65536.0 / rig.out.frames();
        ASSERT_NEAR(step, (before >> 16) < 2000 ? 1.0 : 2.0, 1e-6) << (before >> 16);
        before = rig.out.srcEnd;
    }
    EXPECT_GT(before >> 16, 20'000);
}

TEST(ResampleStage, AChangedSettingCountsFromTheNextBlockOn) {
    ResampleRig rig{48000.0};
    rig.feed(20'000, 48000, toneAt);
    ASSERT_TRUE(rig.process());
    rig.stage.speed = 1.25;
    ASSERT_TRUE(rig.process());
    EXPECT_NEAR(static_cast<double>(rig.out.srcEnd - rig.out.srcStart), 512 * 1.25 * 65536, 1.0);
    rig.stage.srate = 96000.0F;
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.format.rate, 96000);
    rig.stage.rolloff = 0.9;
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.stage.design().taps, 98); // 9.709 / 0.1
}

TEST(ResampleStage, FullScaleSquaresAreHeld) {
    ResampleRig rig{48000.0};
    rig.feed(20'000, 44100, [](int i) { return i % 100 < 50 ? 1.0 : -1.0; });
    const auto out = rig.run();                         // its overshoot would wrap
    for (std::size_t i = 200; i < out.size(); i += 2) { // 25 frames off an edge the level stands
        const double frame = static_cast<double>(i) / 2.0 * 44100 / 48000;
        const double phase = std::fmod(frame, 100.0);
        if (std::fmod(phase, 50.0) < 10.0 || std::fmod(phase, 50.0) > 40.0) continue;
        ASSERT_NEAR(out[i] * 0x1p-31, phase < 50.0 ? 1.0 : -1.0, 0.05) << i;
    }
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 0x7FFFFFFF);
    EXPECT_EQ(*std::min_element(out.begin(), out.end()), -0x7FFFFFFF - 1);
}

// -- Going back --------------------------------------------------------------------------------

TEST(ResampleRewind, ResumesWithinAFractionOfAFrame) {
    ResampleRig straight{48000.0, 1.013};
    straight.feed(60'000, 44100, toneAt);
    const auto expected = straight.run();
    std::mt19937 generator{5};
    for (int turn = 0; turn < 20; ++turn) {
        ResampleRig rig{48000.0, 1.013};
        rig.feed(60'000, 44100, toneAt);
        std::int64_t frames = 0;
        const int blocks = 10 + static_cast<int>(generator() % 60);
        for (int i = 0; i < blocks; ++i) {
            ASSERT_TRUE(rig.process());
            frames += rig.out.frames();
        }
        // Back to an output frame, by the source position that the block carries in 48.16.
        const int back = static_cast<int>(generator() % 512);
        const double share = static_cast<double>(rig.out.frames() - back) / rig.out.frames();
        const double source = (static_cast<double>(rig.out.srcStart) +
                               static_cast<double>(rig.out.srcEnd - rig.out.srcStart) * share) /
                              65536.0;
        rig.stage.seek(-back, FxPos::fromDouble(source));
        EXPECT_EQ(rig.stage.framesOut, frames - back);
        const auto again = rig.run();
        for (std::size_t i = 0; i < std::min<std::size_t>(again.size(), 4000); ++i) {
            const auto at = static_cast<std::size_t>(2 * (frames - back)) + i;
            if (at >= expected.size()) break;
            // A 2^-16th of a frame of this tone is 0.5 * 2 pi 0.01 * 2^-16.
            ASSERT_NEAR(again[i] * 0x1p-31, expected[at] * 0x1p-31, 1e-6);
        }
    }
}

TEST(ResampleRewind, KnowsWhatItNeeds) {
    ResampleRig rig{48000.0};
    rig.feed(20'000, 44100, toneAt);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.stage.inputEndFor(0, FxPos{1000, 5}), 1000 + 18 + 1);
    EXPECT_EQ(rig.stage.inputStartFor(0, FxPos{1000, 5}), 1000 - 18 - 1);
    EXPECT_EQ(rig.stage.alignRewind(-77, FxPos{}), -77);
    rig.stage.enable = false;
    EXPECT_EQ(rig.stage.inputEndFor(0, FxPos{1000, 5}), 1001);
    EXPECT_EQ(rig.stage.inputStartFor(0, FxPos{1000, 5}), 1000);
}

TEST(ResampleRewind, InputBeforeWhatItNeedsMayBeGone) {
    ResampleRig whole{48000.0};
    ResampleRig trimmed{48000.0};
    for (int i = 0; i < 40; ++i) {
        const auto piece = [i](int frame) { return toneAt(i * 500 + frame); };
        whole.feed(500, 44100, piece);
        trimmed.feed(500, 44100, piece);
    }
    while (whole.process()) {
        ASSERT_TRUE(trimmed.process());
        ASSERT_EQ(samplesOf<std::int32_t>(whole.out), samplesOf<std::int32_t>(trimmed.out));
        const std::int64_t start =
            trimmed.stage.inputStartFor(0, FxPos::fromFrame(trimmed.stage.nextInput));
        while (trimmed.ring.count() > 1 && trimmed.ring.oldest().posEnd <= start)
            trimmed.ring.pop();
    }
    EXPECT_FALSE(trimmed.process());
}

TEST(ResampleRewind, ResetClearsThePrivateRing) {
    ResampleRig rig{48000.0};
    rig.stage.scratch.push(countingBlock(rig.arena, 10, 0, 0, 100));
    rig.stage.reset();
    ASSERT_EQ(rig.stage.scratch.count(), 1);
    EXPECT_TRUE(rig.stage.scratch.newest().empty());
}

// -- Off ---------------------------------------------------------------------------------------

TEST(ResampleOff, BlocksGoOnByReference) {
    ResampleRig rig{48000.0, 1.25};
    rig.stage.enable = false;
    rig.feed(1000, 44100, toneAt);
    rig.stage.seek(0, FxPos{250, 99});
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.buffer.get(), rig.ring.at(0).buffer.get());
    EXPECT_EQ(rig.out.frames(), 750);
    EXPECT_EQ(rig.out.format.rate, 44100);
    EXPECT_EQ(rig.out.srcStart, std::int64_t{250} << 16);
    EXPECT_FALSE(rig.process());
}

TEST(ResampleOff, RatesThatNoAudioHasGoThroughAsTheyAre) {
    for (const auto& [rate, outRate, speed] :
         {std::tuple{2'000'000'000, 48000.0, 1.0}, std::tuple{48000, 1e-3, 1.0},
          std::tuple{48000, 48000.0, 0.0}, std::tuple{48000, 48000.0, std::nan("")},
          std::tuple{1, 48000.0, 1.0}}) {
        ResampleRig rig{outRate, speed};
        rig.feed(1000, rate, toneAt);
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.out.buffer.get(), rig.ring.at(0).buffer.get());
    }
}

// -- Settings ----------------------------------------------------------------------------------

TEST(ResampleSettings, SurviveTheStore) {
    MemoryStore store;
    ResampleStage written;
    written.enable = true;
    written.srate = 96000.0F;
    written.rolloff = 0.5;
    written.speed = 1.25;
    written.dither = true;
    RegistryNode out{store, RegistryNode::write};
    written.exchangeSettings(out);
    ResampleStage read;
    RegistryNode in{store, RegistryNode::read};
    read.exchangeSettings(in);
    EXPECT_TRUE(read.enable);
    EXPECT_EQ(read.srate, 96000.0F);
    EXPECT_EQ(read.rolloff, 0.5);
    EXPECT_EQ(read.speed, 1.25);
    EXPECT_TRUE(read.dither);
    EXPECT_EQ(read.design().accuracy, 16);
    EXPECT_EQ(read.design().stopband, 222.0);
    EXPECT_EQ(read.design().tableRows, 32);
}

} // namespace
} // namespace velorine::test
