#include "stages/FaderStage.h"

#include "tests/stages/FaderRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

using Fields = std::vector<std::int64_t>;

/// What the transport asks of the fader, by worked examples at 48 kHz: the old audio has level 1,
/// what follows 2, and 4.
class FaderSchedule : public testing::Test, protected FaderRig {
protected:
    void seekFade() {
        stage.schedule(-1, clock.writtenEnd(), 1500, false, 1, nullptr, false, 2500);
    }
    void seekCut() { stage.schedule(-1, clock.writtenEnd(), 0, false, 1, nullptr, false, 0); }
    void stopFade() { stage.schedule(-1, clock.writtenEnd(), 1000, true, 1, nullptr, false, 2500); }
    void fadeIn(std::int64_t from, int ms) {
        stage.schedule(-1, timeOf(from), ms, false, 0, nullptr, false, 2500);
    }
    void join(std::int64_t from, int spliceMs) {
        stage.schedule(-1, timeOf(from), 0, true, 0, nullptr, false, spliceMs);
    }

    /// Everything that was written waits behind a cut that will never play it.
    void dropInput() {
        FxBlock marker = ring.endMarker();
        marker.srcStart = marker.srcEnd = marker.posEnd << 16;
        ring.clearTo(marker);
        stage.nextInput = marker.posEnd;
    }

    Fields record(int fromNewest) const {
        return fieldsOf(stage.records.at(stage.records.count() - 1 - fromNewest));
    }

    /// Old audio up to 528000, all of it computed, cut at 483840.
    void playAndCut() {
        append(528'000, 1.0f);
        runAll();
        rewindTo(483'840);
    }
};

TEST_F(FaderSchedule, ASeekFadesTheOldAudioOutAndTheNewIn) {
    playAndCut();
    seekFade();
    EXPECT_EQ(record(1), (Fields{483840, 528000, 528000, 528000, 528000, 528000, 483840, 528000, 0,
                                 528000, 0}));
    EXPECT_EQ(record(0), (Fields{528000, 528000, 528000, 528000, 528000, 528000, 528000, 648000, 1,
                                 528000, 0}));
    runAll();
    EXPECT_NEAR(at(483'840), 0.99999, 1e-5);
    EXPECT_NEAR(at(483'840 + 2160), 0.97523, 1e-4);
    EXPECT_NEAR(at(483'840 + 5000), 0.94168, 1e-4);
    EXPECT_NEAR(at(527'999), 0.0, 0.01);
    EXPECT_EQ(at(528'000), 0.0f);
    EXPECT_EQ(stage.framesOut, 648'000) << "silence flushes what follows, and then it stands";
    EXPECT_TRUE(stage.standing);
    EXPECT_TRUE(last.empty());
    EXPECT_EQ(last.format, formatOf(sampleType::int16, 2, 48000));

    // The first data of the new place, 50 ms later.
    rewindTo(488'160);
    fadeIn(528'000, 160);
    EXPECT_EQ(record(0), (Fields{488160, 495840, 528000, 535680, 528000, 535680, 488160, 495840, 0,
                                 528000, 0}));
    EXPECT_FALSE(process()) << "none of it is there yet";
    append(1152, 2.0f);
    runAll();
    EXPECT_EQ(stage.framesOut, 488'160 + 1152) << "as much as there is, and then it waits";
    EXPECT_FALSE(process());
    append(60'000, 2.0f);
    runTo(500'000);
    EXPECT_NEAR(at(488'160), 0.96593, 2e-4);
    EXPECT_NEAR(at(488'160 + 3840), 2.0527, 2e-4);
    EXPECT_NEAR(at(488'160 + 7679), 2.00707, 2e-4);
    EXPECT_EQ(at(488'160 + 7680), 2.0f);
    EXPECT_EQ(stage.nextInput - stage.framesOut, 535'680 - 495'840);
}

TEST_F(FaderSchedule, ASecondSeekInsideTheRunningFadeInGoesOnFromThere) {
    playAndCut();
    seekFade();
    runAll();
    rewindTo(488'160);
    fadeIn(528'000, 160);
    append(61'152, 2.0f);
    runAll();
    rewindTo(493'840);
    seekFade();
    EXPECT_EQ(record(1), (Fields{493840, 549312, 549312, 549312, 589152, 589152, 493840, 549312, 0,
                                 589152, 0}));
    EXPECT_EQ(record(0), (Fields{549312, 549312, 549312, 549312, 589152, 589152, 549312, 669312, 1,
                                 589152, 0}));
    const float playing = at(493'839);
    runAll();
    EXPECT_NEAR(at(493'840), 2.16882, 2e-4);
    EXPECT_NEAR(at(493'840), playing, 1e-3);

    rewindTo(495'000);
    fadeIn(589'152, 160);
    EXPECT_EQ(record(0), (Fields{495000, 502680, 549312, 556992, 589152, 596832, 495000, 502680, 0,
                                 589152, 0}));
    append(30'000, 4.0f);
    runTo(510'000);
    EXPECT_EQ(at(502'680), 4.0f);
    EXPECT_EQ(stage.nextInput, 589'152 + stage.framesOut - 495'000);
}

TEST_F(FaderSchedule, AStopFadesLinearlyAndTheNextTrackComesInByItself) {
    append(576'000, 1.0f);
    runAll();
    rewindTo(486'240);
    std::int64_t frames = 0;
    stage.schedule(-1, clock.writtenEnd(), 1000, true, 1, &frames, false, 2500);
    EXPECT_EQ(frames, 48'000);
    EXPECT_EQ(record(1), (Fields{486240, 534240, 576000, 576000, 576000, 576000, 486240, 534240, 0,
                                 576000, 1}));
    EXPECT_EQ(record(0), (Fields{534240, 534240, 534240, 534240, 576000, 576000, 534240, 654240, 1,
                                 576000, 1}));
    runAll();
    for (const auto& [i, level] : {std::pair{0, 0.99999},
                                   {12'000, 0.74999},
                                   {24'000, 0.49999},
                                   {36'000, 0.24999},
                                   {47'999, 1e-5}})
        EXPECT_NEAR(at(486'240 + i), level, 1e-4) << i;
    EXPECT_EQ(at(534'240), 0.0f);
    EXPECT_EQ(at(654'239), 0.0f);
    EXPECT_EQ(stage.framesOut, 486'240 + 168'000);
    EXPECT_TRUE(stage.standing);

    fadeIn(576'000, 40);
    EXPECT_EQ(record(0), (Fields{654240, 654240, 654240, 656160, 576000, 577920, 654240, 656160, 0,
                                 576000, 0}));
    append(10'000, 2.0f);
    runTo(660'000);
    EXPECT_NEAR(at(654'240), 0.03227, 1e-4);
    EXPECT_NEAR(at(654'240 + 960), 1.41455, 2e-4);
    EXPECT_NEAR(at(654'240 + 1919), 1.99972, 2e-4);
    EXPECT_EQ(at(654'240 + 1920), 2.0f);
}

TEST_F(FaderSchedule, APauseIsAJoinWithoutALoss) {
    append(528'000, 1.0f);
    runAll();
    rewindTo(480'000);
    join(480'000, 2500);
    EXPECT_EQ(record(0), (Fields{480000, 480000, 480000, 480000, 480000, 480000, 480000, 480000, 0,
                                 480000, 1}));
    ASSERT_TRUE(process());
    EXPECT_EQ(last.srcStart, std::int64_t{480'000} << 16);
}

TEST_F(FaderSchedule, ASeekWhilePausedPlaysNothingOfTheOldAudio) {
    append(528'000, 1.0f);
    runAll();
    rewindTo(480'000);
    join(480'000, 2500);
    seekFade();
    join(528'000, 250);
    EXPECT_EQ(stage.records.newest().resume, 528'000);
    EXPECT_EQ(stage.records.newest().spliceStart, 480'000);
    EXPECT_EQ(stage.records.newest().spliceEnd, 480'000);
    dropInput();
    fadeIn(528'000, 160);
    EXPECT_EQ(record(0), (Fields{480000, 480000, 480000, 487680, 528000, 535680, 480000, 487680, 0,
                                 528000, 0}));
    append(20'000, 2.0f);
    runAll();
    for (const int i : {0, 100, 3840, 7679})
        EXPECT_NEAR(at(480'000 + i), 2.0 * std::sqrt((i + 0.5) / 7680), 2e-4) << i;
    EXPECT_EQ(at(487'680), 2.0f);
}

TEST_F(FaderSchedule, WhatLagsBehindDoesNotSwallowTheStartOfAFade) {
    playAndCut();
    clock.lag = 1080;
    seekFade();
    EXPECT_EQ(record(1), (Fields{484920, 528000, 528000, 528000, 528000, 528000, 484920, 528000, 0,
                                 528000, 0}));
    runAll();
    for (int i = 0; i < 1080; i += 120)
        EXPECT_EQ(at(483'840 + i), 1.0f) << "not begun yet";
    EXPECT_NEAR(at(484'920), 0.99999, 1e-5);
    EXPECT_EQ(stage.framesOut, 648'000);

    fadeIn(528'000, 40);
    append(20'000, 2.0f);
    runAll();
    EXPECT_EQ(at(648'000), 0.0f) << "where the stream stood, the lag is silence";
    EXPECT_EQ(at(649'079), 0.0f);
    EXPECT_NEAR(at(649'080), 2.0 * std::sqrt(0.5 / 1920), 1e-3);
    EXPECT_NEAR(at(649'080 + 960), 1.41455, 2e-4);
    EXPECT_EQ(at(649'080 + 1920), 2.0f);
}

TEST_F(FaderSchedule, ACutIgnoresTheLag) {
    playAndCut();
    clock.lag = 1080;
    seekCut();
    EXPECT_EQ(stage.records.at(0).spliceStart, 483'840);
    runAll();
    EXPECT_EQ(stage.framesOut, 483'841);
    EXPECT_EQ(at(483'840), 0.0f);
}

TEST_F(FaderSchedule, AStopWithoutAFadeIsOneFrameOfSilence) {
    playAndCut();
    stage.schedule(-1, clock.writtenEnd(), 0, true, 1, nullptr, false, 0);
    EXPECT_EQ(record(1), (Fields{483840, 483840, 528000, 528000, 528000, 528000, 483840, 483840, 0,
                                 528000, 1}));
    EXPECT_EQ(record(0), (Fields{483840, 483840, 483840, 483840, 528000, 528000, 483840, 483841, 1,
                                 528000, 1}));
    runAll();
    EXPECT_EQ(stage.framesOut, 483'841);
    EXPECT_TRUE(stage.standing);
}

TEST_F(FaderSchedule, AFadeNeverOutlastsItsAudio) {
    append(100'000, 1.0f);
    runAll();
    rewindTo(90'000);
    std::int64_t frames = 0;
    stage.schedule(-1, clock.writtenEnd(), 1000, true, 1, &frames, false, 2500);
    EXPECT_EQ(frames, 10'000);
    runAll();
    EXPECT_NEAR(at(99'999), 0.0, 1e-3) << "it ends in silence and not in a cut";
}

TEST_F(FaderSchedule, WithEnoughQueuedASeekFadesOverASecondAndAHalf) {
    append(200'000, 1.0f);
    runAll();
    rewindTo(100'000);
    std::int64_t frames = 0;
    stage.schedule(-1, clock.writtenEnd(), 1500, false, 1, &frames, false, 2500);
    EXPECT_EQ(frames, 72'000);
    runAll();
    for (const int i : {0, 18'000, 36'000, 54'000, 71'999})
        EXPECT_NEAR(at(100'000 + i), std::sqrt(1 - (i + 0.5) / 72'000), 1e-3) << i;
    EXPECT_EQ(at(172'000), 0.0f) << "the rest of the old audio isn't heard";
    EXPECT_EQ(stage.framesOut, 172'000 + 120'000);
}

TEST_F(FaderSchedule, InAFileItMay) {
    clock.realTime = false;
    append(100'000, 1.0f);
    runAll();
    rewindTo(99'000);
    std::int64_t frames = 0;
    stage.schedule(-1, clock.writtenEnd(), 1000, true, 1, &frames, false, 2500);
    EXPECT_EQ(frames, 48'000);
    runAll();
    EXPECT_NEAR(at(99'999), 0.979, 1e-3);
    EXPECT_EQ(at(100'000), 0.0f) << "there is no more old audio";
    EXPECT_EQ(stage.framesOut, 99'000 + 48'000 + 120'000);
}

TEST_F(FaderSchedule, AJumpBehindWhatPlaysIsHeldToIt) {
    append(50'000, 1.0f);
    runTo(40'000);
    const std::int64_t playing = stage.nextInput;
    stage.schedule(-1, timeOf(10'000), 0, true, 0, nullptr, false, 0);
    EXPECT_EQ(stage.records.newest().resume, playing);
    stage.schedule(-1, timeOf(10'000), 0, true, 0, nullptr, true, 0);
    EXPECT_EQ(stage.records.newest().resume, 10'000) << "unless it may lie behind";
}

TEST_F(FaderSchedule, TheOldAudiosEndIsCountedOnItsOwnMapping) {
    // A seek while a fade-in waits 2160 frames ahead.
    append(528'000, 1.0f);
    runAll();
    rewindTo(486'000);
    clock.lag = 2160;
    fadeIn(528'000, 160);
    clock.lag = 0;
    append(30'000, 2.0f);
    ASSERT_EQ(stage.records.newest().spliceStart, 488'160);
    seekFade();
    EXPECT_EQ(stage.records.at(stage.records.count() - 2).oldHoldFrom, 486'000 + 32'160);
    EXPECT_EQ(stage.records.at(stage.records.count() - 2).spliceEnd, 486'000 + 32'160);
}

TEST_F(FaderSchedule, AStageThatNeverRanSchedulesNothing) {
    FaderStage unused;
    EXPECT_FALSE(unused.hasRun());
    EXPECT_EQ(unused.schedule(-1, 12345, 1000, true, 1, nullptr, false, 2500), 12345);
    EXPECT_TRUE(unused.records.empty());
}

TEST_F(FaderSchedule, ASpliceMayBeAskedForAtATime) {
    append(50'000, 1.0f);
    runTo(20'000);
    stage.schedule(timeOf(12'000), timeOf(50'000), 0, true, 0, nullptr, false, 0);
    EXPECT_EQ(stage.records.newest().spliceStart, 12'000);
}

TEST_F(FaderSchedule, FramesFollowTheRateOfTheAudio) {
    for (const int hostRate : {44100, 48000, 8000, 192000}) {
        FaderRig rig{hostRate};
        rig.append(3 * hostRate, 1.0f);
        rig.runAll();
        rig.rewindTo(0);
        std::int64_t frames = 0;
        for (const auto& [ms, out] :
             {std::pair{40, false}, {160, false}, {1000, true}, {1500, false}}) {
            rig.stage.schedule(-1, rig.clock.writtenEnd(), ms, out, 1, &frames, false, 250);
            EXPECT_EQ(frames, static_cast<std::int64_t>(hostRate) * ms / 1000) << hostRate;
            EXPECT_EQ(rig.stage.records.newest().spliceEnd - rig.stage.records.newest().spliceStart,
                      hostRate / 4);
            while (!rig.stage.records.empty())
                rig.stage.records.pop();
        }
    }
}

TEST_F(FaderSchedule, TheTimeOfTheJoinIsReturned) {
    playAndCut();
    const FxTime joined = stage.schedule(-1, timeOf(500'000), 0, true, 0, nullptr, false, 0);
    EXPECT_LE(std::abs(joined - timeOf(500'000)), 1);
}

} // namespace
} // namespace velorine::test
