#include "stages/FaderStage.h"

#include "tests/stages/FaderRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;
constexpr int float32 = sampleType::float32;

class Fader : public testing::Test, protected FaderRig {
protected:
    /// A record with both sides from `spliceStart` on, that joins input frame `resume`.
    static FadeRecord splice(std::int64_t spliceStart, std::int64_t length, std::int64_t resume) {
        FadeRecord record;
        record.oldFrom = record.spliceStart = spliceStart;
        record.oldTo = record.spliceEnd = spliceStart + length;
        record.oldHoldFrom = 1'000'000'000;
        record.oldHoldTo = record.oldHoldFrom + length;
        record.inFrom = record.resume = resume;
        record.inTo = resume + length;
        return record;
    }

    /// A record far ahead that only makes the ones before it older.
    void age(int by) {
        for (int i = 0; i < by; ++i)
            stage.records.push(splice(900'000'000, 10, 900'000'000));
    }
};

// -- The plain path ----------------------------------------------------------------------------

TEST_F(Fader, WithoutARecordBlocksGoOnByReference) {
    append(5000, 0.5f);
    ASSERT_TRUE(process());
    EXPECT_EQ(last.buffer.get(), ring.at(0).buffer.get());
    EXPECT_EQ(last.frames(), 2304);
    EXPECT_EQ(last.srcEnd, std::int64_t{2304} << 16);
    runAll();
    EXPECT_EQ(stage.framesOut, 5000);
    EXPECT_FALSE(process());
}

TEST_F(Fader, ABlockEnteredInsideGoesOnFromThere) {
    append(2304, 0.5f);
    runAll();
    rewindTo(1000);
    ASSERT_TRUE(process());
    EXPECT_EQ(last.frames(), 1304);
    EXPECT_EQ(last.buffer.get(), ring.at(0).buffer.get());
}

TEST_F(Fader, AHoleIsSilence) {
    appendBlock({1, 1, 1});
    FxBlock late = blockOf<float>(arena, formatOf(float32, 1, 48000), {2, 2}, 100, 200);
    late.posStart = 703;
    late.posEnd = 705;
    ring.push(late);
    std::vector<int> frames;
    while (process())
        frames.push_back(last.frames());
    EXPECT_EQ(frames, (std::vector<int>{3, 576, 124, 2}));
    EXPECT_EQ(at(3), 0.0f);
    EXPECT_EQ(at(704), 2.0f);
}

TEST_F(Fader, BehindASpliceTheSamplesAreUntouchedAgain) {
    append(20'000, 1.0f);
    runTo(1000);
    rewindTo(1000);
    stage.schedule(-1, timeOf(8000), 10, false, 0, nullptr, false, 0);
    runTo(1480);
    ASSERT_EQ(stage.framesOut, 1480);
    ASSERT_TRUE(process());
    const int index = 8480 / 2304;
    EXPECT_EQ(last.buffer.get(), ring.at(index).buffer.get());
    EXPECT_EQ(last.srcStart, std::int64_t{8480} << 16);
    EXPECT_LE(std::abs(last.timeStart - timeOf(8480)), 1);
}

TEST_F(Fader, WithNothingWantedItMarksItsPlace) {
    append(5000, 1.0f);
    runTo(2304);
    ASSERT_TRUE(process(0));
    EXPECT_TRUE(last.empty());
    EXPECT_TRUE(stage.standing);
    EXPECT_EQ(last.format, formatOf(int16, 2, 48000));
    EXPECT_LE(std::abs(last.timeStart - timeOf(2304)), 1);
    stage.schedule(-1, timeOf(4000), 10, false, 0, nullptr, false, 0);
    ASSERT_TRUE(process(0));
    EXPECT_TRUE(last.empty());
}

TEST_F(Fader, MarkersGoOnOnce) {
    append(100, 1.0f);
    appendTo(ring, markerOf(formatOf(int16, 6, 44100), ring.newest().timeEnd));
    ASSERT_TRUE(process());
    ASSERT_TRUE(process());
    EXPECT_TRUE(last.empty());
    EXPECT_EQ(last.format, formatOf(int16, 6, 44100));
    EXPECT_FALSE(stage.standing);
    EXPECT_FALSE(process());
}

TEST_F(Fader, MarkersGoOnOnceBehindARecordToo) {
    append(3000, 1.0f);
    runTo(1000);
    stage.schedule(-1, timeOf(2900), 0, true, 0, nullptr, false, 0);
    appendTo(ring, markerOf(formatOf(int16, 6, 44100), ring.newest().timeEnd));
    int markers = 0;
    while (process())
        markers += last.empty() ? 1 : 0;
    EXPECT_EQ(markers, 1);
}

// -- Standing ----------------------------------------------------------------------------------

TEST_F(Fader, AStandingStageTakesNoInput) {
    append(10'000, 1.0f);
    runTo(5000);
    stage.schedule(-1, clock.writtenEnd(), 0, true, 1, nullptr, false, 0);
    runAll();
    ASSERT_TRUE(stage.standing);
    const std::int64_t count = stage.framesOut;
    append(10'000, 2.0f);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(process());
        EXPECT_TRUE(last.empty());
        EXPECT_TRUE(stage.standing);
    }
    EXPECT_EQ(stage.framesOut, count);
}

TEST_F(Fader, BehindAnOlderStopThereIsSilenceAndNotTheNextTrack) {
    append(10'000, 1.0f);
    runTo(5000);
    rewindTo(5000);
    stage.schedule(-1, clock.writtenEnd(), 0, true, 1, nullptr, false, 0);
    runAll();
    // The fade-in begins later than the stop ended: what lies between is silent.
    clock.lag = 500;
    append(10'000, 2.0f);
    stage.schedule(-1, timeOf(10'000), 20, false, 0, nullptr, false, 0);
    runTo(7000);
    for (int i = 5000; i < 5501; ++i)
        ASSERT_EQ(at(i), 0.0f) << i;
    EXPECT_NEAR(at(5501), 2.0 * std::sqrt(0.5 / 960), 1e-3);
}

// -- Splices -----------------------------------------------------------------------------------

TEST_F(Fader, ASpliceOfOneFrameHearsBothSides) {
    append(100, 1.0f);
    append(100, 2.0f);
    process();
    rewindTo(50);
    stage.records.push(splice(50, 1, 100));
    process();
    EXPECT_NEAR(at(50), 3.0 * std::sqrt(0.5), 1e-6);
    process();
    EXPECT_EQ(at(51), 2.0f);
}

TEST_F(Fader, WithoutAnOldSideTheNewOneComesIn) {
    append(100, 1.0f);
    append(1000, 2.0f);
    process();
    rewindTo(50);
    FadeRecord record = splice(50, 400, 100);
    record.oldTo = record.oldFrom;
    stage.records.push(record);
    runTo(460);
    for (const int i : {0, 100, 399})
        EXPECT_NEAR(at(50 + i), 2.0 * std::sqrt((i + 0.5) / 400), 1e-3) << i;
}

TEST_F(Fader, WithoutANewSideTheOldOneGoesOut) {
    append(1000, 2.0f);
    process();
    rewindTo(50);
    FadeRecord record = splice(50, 400, 600);
    record.oldHoldTo = record.oldHoldFrom;
    record.inTo = record.inFrom;
    record.linear = true;
    stage.records.push(record);
    runTo(450);
    for (const int i : {0, 100, 399})
        EXPECT_NEAR(at(50 + i), 2.0 * (1 - (i + 0.5) / 400), 1e-3) << i;
}

TEST_F(Fader, WithNeitherSideThereIsSilence) {
    append(1000, 2.0f);
    process();
    rewindTo(50);
    FadeRecord record = splice(50, 400, 600);
    record.oldTo = record.oldFrom;
    record.oldHoldTo = record.oldHoldFrom;
    record.inTo = record.inFrom;
    stage.records.push(record);
    runTo(460);
    for (int i = 50; i < 450; ++i)
        ASSERT_EQ(at(i), 0.0f);
    EXPECT_EQ(at(450), 2.0f);
}

TEST_F(Fader, BehindItsOwnEndTheOldSideIsSilent) {
    append(1000, 1.0f);
    append(1000, 2.0f);
    process();
    rewindTo(50);
    FadeRecord record = splice(50, 400, 1000);
    record.oldHoldFrom = 150; // a hundred frames of it are left
    record.oldHoldTo = 550;
    stage.records.push(record);
    runTo(460);
    EXPECT_NEAR(at(149), 2 * std::sqrt(99.5 / 400) + std::sqrt(1 - 99.5 / 400), 1e-3);
    EXPECT_NEAR(at(150), 2 * std::sqrt(100.5 / 400), 1e-3);
}

TEST_F(Fader, BeforeItsSpliceARecordChangesNothing) {
    append(1000, 1.0f);
    append(1000, 2.0f);
    process();
    rewindTo(50);
    stage.records.push(splice(300, 100, 1000));
    runTo(450);
    for (int i = 50; i < 300; ++i)
        ASSERT_EQ(at(i), 1.0f);
    EXPECT_GT(at(300), 1.0f);
    EXPECT_EQ(at(400), 2.0f);
}

TEST_F(Fader, ARewindBeforeARecordPlaysItAgain) {
    append(1000, 1.0f);
    append(2000, 2.0f);
    process();
    rewindTo(50);
    stage.records.push(splice(300, 100, 1000));
    runTo(900);
    const std::vector<float> first = output;
    rewindTo(200);
    runTo(900);
    const std::size_t common = std::min(first.size(), output.size());
    ASSERT_GE(common, 900u);
    for (std::size_t i = 0; i < common; ++i)
        ASSERT_NEAR(output[i], first[i], 1e-4) << i;
    EXPECT_EQ(stage.records.count(), 1);
}

TEST_F(Fader, TimesFollowTheNewSide) {
    append(1000, 1.0f);
    append(1000, 2.0f);
    process();
    rewindTo(50);
    stage.records.push(splice(50, 100, 1000));
    ASSERT_TRUE(process());
    EXPECT_LE(std::abs(last.timeStart - timeOf(1000)), 1);
    EXPECT_LE(std::abs(last.timeEnd - timeOf(1100)), 1);
    EXPECT_EQ(last.srcStart, std::int64_t{1000} << 16);
}

TEST_F(Fader, TimesOfAFadeOutFollowTheOldSide) {
    append(2000, 1.0f);
    process();
    rewindTo(50);
    FadeRecord record = splice(50, 100, 1500);
    record.oldHoldTo = record.oldHoldFrom;
    record.inTo = record.inFrom;
    stage.records.push(record);
    ASSERT_TRUE(process());
    EXPECT_LE(std::abs(last.timeStart - timeOf(50)), 1);
    EXPECT_LE(std::abs(last.timeEnd - timeOf(150)), 1);
}

// -- Old records -------------------------------------------------------------------------------

struct AgeRow {
    int age;
    double scale;
    bool linear;
};

class FaderAge : public Fader {
protected:
    /// What a splice of equal power from level 1 to level 2 delivers as the record of this age, at
    /// its middle; the sides are chosen by `change`.
    template <typename Change>
    double middleAt(int recordAge, Change&& change) {
        FaderRig rig;
        rig.append(1000, 1.0f);
        rig.append(1000, 2.0f);
        rig.process();
        rig.rewindTo(50);
        FadeRecord record = splice(50, 401, 1000);
        change(record);
        rig.stage.records.push(record);
        for (int i = 1; i < recordAge; ++i)
            rig.stage.records.push(splice(900'000'000, 10, 900'000'000));
        rig.runTo(451);
        return static_cast<double>(rig.at(250));
    }
};

TEST_F(FaderAge, BothSidesDieAwayFromTheEighthOn) {
    for (const AgeRow row : {AgeRow{1, 1.0, false},
                             {7, 1.0, false},
                             {8, 0.8, true},
                             {9, 0.6, true},
                             {10, 0.4, true},
                             {11, 0.2, true},
                             {12, 0.0, true},
                             {20, 0.0, true}}) {
        const double middle = row.linear ? 1.5 : 3 * std::sqrt(0.5);
        EXPECT_NEAR(middleAt(row.age, [](FadeRecord&) {}), middle * row.scale, 1e-3) << row.age;
    }
}

TEST_F(FaderAge, OneSideDiesAwayFromTheFourteenthOn) {
    const auto onlyNew = [](FadeRecord& record) { record.oldTo = record.oldFrom; };
    const auto onlyOld = [](FadeRecord& record) {
        record.oldHoldTo = record.oldHoldFrom;
        record.inTo = record.inFrom;
    };
    for (const AgeRow row : {AgeRow{1, 1.0, false},
                             {13, 1.0, false},
                             {14, 0.8, false},
                             {15, 0.6, false},
                             {16, 0.4, false},
                             {17, 0.2, false},
                             {18, 0.0, true},
                             {30, 0.0, true}}) {
        EXPECT_NEAR(middleAt(row.age, onlyNew), 2 * std::sqrt(0.5) * row.scale, 1e-3) << row.age;
        EXPECT_NEAR(middleAt(row.age, onlyOld), std::sqrt(0.5) * row.scale, 1e-3) << row.age;
    }
}

TEST_F(Fader, ThirtyThreeRecordsDropTheOldestAtTheNextCall) {
    append(10'000, 1.0f);
    process();
    for (int i = 0; i < 33; ++i)
        stage.schedule(-1, timeOf(5000 + i), 160, false, 0, nullptr, true, 0);
    EXPECT_EQ(stage.records.count(), 33);
    const std::int64_t second = stage.records.at(1).resume;
    process();
    EXPECT_EQ(stage.records.count(), 32);
    EXPECT_EQ(stage.records.at(0).resume, second);
}

// -- Formats -----------------------------------------------------------------------------------

template <typename Sample>
FxBlock constant(FxArena& arena, int type, int channels, int rate, int frames, Sample value,
                 FxTime timeStart) {
    const std::vector<Sample> samples(static_cast<std::size_t>(frames * channels), value);
    return blockOf(arena, formatOf(type, channels, rate), samples, timeStart,
                   timeStart + ticksPerSecond * frames / rate);
}

TEST_F(Fader, SidesOfDifferentFormatsAreCutFromOneToTheOther) {
    struct Other {
        int type, channels, rate;
    };
    for (const Other other : {Other{float32, 2, 48000}, {int16, 1, 48000}, {float32, 1, 44100}}) {
        FaderRig rig;
        appendTo(rig.ring, constant(rig.arena, float32, 1, 48000, 1000, 1.0f, 0));
        if (other.type == float32)
            appendTo(rig.ring, constant(rig.arena, float32, other.channels, other.rate, 1000, 2.0f,
                                        rig.ring.newest().timeEnd));
        else
            appendTo(rig.ring, constant<std::int16_t>(rig.arena, int16, 1, 48000, 1000, 77,
                                                      rig.ring.newest().timeEnd));
        rig.process();
        rig.rewindTo(50);
        rig.stage.records.push(splice(50, 100, 1000));
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.last.format, formatOf(other.type, other.channels, other.rate));
        EXPECT_EQ(rig.last.frames(), 100);
        if (other.type == float32) {
            EXPECT_EQ(samplesOf<float>(rig.last).front(), 2.0f);
        } else {
            EXPECT_EQ(samplesOf<std::int16_t>(rig.last).front(), 77);
        }
    }
}

TEST_F(Fader, TypesThatAreRampedStayWhatTheyAre) {
    FaderRig rig;
    appendTo(rig.ring, constant<std::int16_t>(rig.arena, int16, 2, 44100, 2000, 1000, 0));
    rig.process();
    rig.rewindTo(50);
    rig.stage.records.push(splice(50, 100, 1000));
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.last.format, formatOf(int16, 2, 44100));
    EXPECT_EQ(samplesOf<std::int16_t>(rig.last)[100], 1414); // both sides are the same

    FaderRig wide;
    appendTo(wide.ring,
             constant<std::int32_t>(wide.arena, sampleType::int32, 1, 44100, 2000, 1 << 28, 0));
    wide.process();
    wide.rewindTo(50);
    wide.stage.records.push(splice(50, 100, 1000));
    ASSERT_TRUE(wide.process());
    EXPECT_EQ(wide.last.format.type, sampleType::int32);
}

TEST_F(Fader, OtherTypesAreRampedAsFloat) {
    for (const int type :
         {sampleType::int8, sampleType::int24, sampleType::int28, sampleType::float64}) {
        FaderRig rig;
        FxBlock block;
        block.allocate(rig.arena, formatOf(type, 6, 44100), 2000);
        std::memset(const_cast<std::byte*>(block.data()), 0,
                    static_cast<std::size_t>(2000 * bytesPerFrame(block.format)));
        block.timeEnd = ticksPerSecond * 2000 / 44100;
        appendTo(rig.ring, block);
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.last.format.type, type) << "by reference outside of splices";
        rig.rewindTo(50);
        rig.stage.records.push(splice(50, 100, 1000));
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.last.format, formatOf(float32, 6, 44100));
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.last.format.type, type);
    }
}

TEST_F(Fader, AFormatThatChangesInsideASideEndsAPiece) {
    FaderRig rig;
    appendTo(rig.ring, constant<std::int16_t>(rig.arena, int16, 2, 44100, 500, 1000, 0));
    appendTo(rig.ring,
             constant<float>(rig.arena, float32, 2, 44100, 1500, 0.5f, rig.ring.newest().timeEnd));
    rig.process();
    rig.rewindTo(50);
    FadeRecord record = splice(50, 1000, 1500);
    record.oldHoldTo = record.oldHoldFrom;
    record.inTo = record.inFrom;
    rig.stage.records.push(record);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.last.frames(), 450);
    EXPECT_EQ(rig.last.format.type, int16);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.last.format.type, float32);
}

TEST_F(Fader, SilenceHasTheFormatOfWhatWasWrittenLast) {
    FaderRig rig;
    appendTo(rig.ring, constant<std::uint8_t>(rig.arena, sampleType::int8, 1, 22050, 2000, 200, 0));
    rig.process();
    rig.rewindTo(50);
    rig.stage.schedule(-1, rig.clock.writtenEnd(), 0, true, 1, nullptr, false, 100);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.last.format, formatOf(float32, 1, 22050));
    EXPECT_EQ(samplesOf<float>(rig.last).front(), 0.0f);
}

// -- What is still needed ----------------------------------------------------------------------

TEST_F(Fader, WithoutARecordItHoldsALittleBack) {
    append(5000, 1.0f);
    process();
    EXPECT_EQ(stage.inputStartFor(-1000, FxPos::fromDouble(1304.5)), 1304 - 256);
}

TEST_F(Fader, TheOldSideOfASpliceIsHeldBack) {
    append(50'000, 1.0f);
    runAll();
    rewindTo(20'000);
    stage.schedule(-1, timeOf(40'000), 160, false, 0, nullptr, false, 0);
    runTo(30'000);
    const int behind = static_cast<int>(21'000 - stage.framesOut);
    EXPECT_EQ(stage.inputStartFor(behind, FxPos::fromFrame(41'000)), 21'000 - 256);
    const int past = static_cast<int>(28'000 - stage.framesOut);
    EXPECT_EQ(stage.inputStartFor(past, FxPos::fromFrame(48'000)), 48'000 - 256);
}

} // namespace
} // namespace velorine::test
