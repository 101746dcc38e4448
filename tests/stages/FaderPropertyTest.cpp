#include "stages/FaderStage.h"

#include "tests/stages/FaderRig.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <string>

namespace velorine::test {
namespace {

constexpr int rate = 8000;

/// A schedule of what a host may do: the same for every rig that plays it.
struct Step {
    enum class Does { write, run, seekFade, seekCut, stopFade, fadeIn, join, cut };

    Does does = Does::write;
    std::int64_t frames = 0; ///< written, or run ahead of the cut
    int ms = 0;
    std::uint32_t seed = 0;
};

std::vector<Step> randomSteps(std::uint32_t seed, int count) {
    std::mt19937 random{seed};
    std::vector<Step> steps{{Step::Does::write, 4000, 0, seed}, {Step::Does::run, 1000, 0, 0}};
    for (int i = 0; i < count; ++i) {
        Step step;
        step.seed = static_cast<std::uint32_t>(random());
        const auto choice = random() % 16;
        step.frames = 1 + static_cast<std::int64_t>(random() % 3000);
        step.ms = static_cast<int>(random() % 400);
        step.does = choice < 6    ? Step::Does::write
                    : choice < 10 ? Step::Does::run
                    : choice < 11 ? Step::Does::seekFade
                    : choice < 12 ? Step::Does::seekCut
                    : choice < 13 ? Step::Does::stopFade
                    : choice < 14 ? Step::Does::fadeIn
                    : choice < 15 ? Step::Does::join
                                  : Step::Does::cut;
        steps.push_back(step);
    }
    return steps;
}

std::string told(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps)
        text += std::to_string(static_cast<int>(step.does)) + ":" + std::to_string(step.frames) +
                "/" + std::to_string(step.ms) + " ";
    return text;
}

/// Plays a schedule. How it cuts the work into calls is the rig's own matter.
class Player {
public:
    explicit Player(std::uint32_t callSeed) : calls(callSeed) {}

    void play(const Step& step) {
        switch (step.does) {
        case Step::Does::write:
            write(step);
            return;
        case Step::Does::run:
            run(rig.stage.framesOut + step.frames);
            return;
        case Step::Does::seekFade:
            cutAt(step);
            schedule(end(), step.ms, false, 1);
            return;
        case Step::Does::seekCut:
            cutAt(step);
            schedule(end(), 0, false, 1);
            return;
        case Step::Does::stopFade:
            cutAt(step);
            schedule(end(), step.ms, true, 1);
            return;
        case Step::Does::fadeIn:
            cutAt(step);
            schedule(end(), step.ms, false, 0);
            return;
        case Step::Does::join:
            cutAt(step);
            schedule(0, 0, true, 0);
            return;
        case Step::Does::cut:
            cutAt(step);
            schedule(end(), 0, true, 0);
            return;
        }
    }

    /// An edit: the chain goes back to a little behind the speakers.
    void cutAt(const Step& step) {
        const std::int64_t made = rig.stage.framesOut;
        const std::int64_t played = std::max<std::int64_t>(made - aheadOfSpeakers, playedUpTo);
        playedUpTo = played;
        rig.rewindTo(std::min(made, played + step.frames % aheadOfSpeakers));
        if (trims) rig.trim(played);
    }

    /// Takes back some of what was made and makes it again.
    void rewindAndReturn(std::uint32_t seed) {
        const std::int64_t made = rig.stage.framesOut;
        const std::int64_t least = std::max<std::int64_t>(made - aheadOfSpeakers, playedUpTo);
        if (made <= least) return;
        rig.rewindTo(least + static_cast<std::int64_t>(seed) % (made - least));
        run(made);
    }

    FaderRig rig{rate};
    bool trims = false;
    bool watchesPeak = false;
    unsigned callLimit = 3000; ///< most frames that are asked for at once

private:
    static constexpr std::int64_t aheadOfSpeakers = 4000;

    FxTime end() { return rig.clock.writtenEnd(); }

    void write(const Step& step) {
        std::mt19937 random{step.seed};
        std::vector<float> samples;
        for (std::int64_t i = 0; i < step.frames; ++i)
            samples.push_back(static_cast<float>(random()) / 2147483648.0f - 1.0f);
        rig.appendBlock(samples);
    }

    /// All the stage can deliver up to `frame`, and no more: then every rig is at the same place.
    void run(std::int64_t frame) {
        for (;;) {
            const std::int64_t before = rig.stage.framesOut;
            if (before >= frame) break;
            const int most = 1 + static_cast<int>(calls() % (callLimit));
            if (!rig.process(most) || rig.stage.standing) break;
            if (watchesPeak) checkPeak(before);
        }
        if (rig.stage.framesOut > frame) rig.rewindTo(frame);
    }

    void checkPeak(std::int64_t from) {
        const std::int64_t to = rig.stage.framesOut;
        int layers = 1;
        for (int i = 0; i < rig.stage.records.count(); ++i) {
            const FadeRecord& record = rig.stage.records.at(i);
            if (record.spliceStart < to && from < record.spliceEnd) ++layers;
        }
        ASSERT_LE(rig.stage.records.count(), 32);
        for (std::int64_t i = from; i < to; ++i) {
            ASSERT_TRUE(std::isfinite(rig.at(i)));
            ASSERT_LE(std::fabs(rig.at(i)), std::sqrt(layers) * 1.00001) << "frame " << i;
        }
    }

    void schedule(FxTime at, int ms, bool linear, int kind) {
        rig.stage.schedule(-1, at, ms, linear, kind, nullptr, false, ms == 0 ? 0 : 100);
    }

    std::mt19937 calls;
    std::int64_t playedUpTo = 0;
};

TEST(FaderProperty, HowTheCallsAreCutMakesNoDifference) {
    for (std::uint32_t seed = 0; seed < 150; ++seed) {
        const std::vector<Step> steps = randomSteps(seed, 60);
        Player one{1};
        Player other{2};
        one.callLimit = 1152;
        other.callLimit = 200;
        for (const Step& step : steps) {
            one.play(step);
            other.play(step);
            ASSERT_EQ(one.rig.stage.framesOut, other.rig.stage.framesOut)
                << seed << ": " << told(steps);
        }
        // A ramp's time is taken anew in each call and a little slow inside one: at the ends of a
        // fade, where the root is steep, that shows.
        ASSERT_EQ(one.rig.output.size(), other.rig.output.size());
        std::size_t apart = 0;
        for (std::size_t i = 0; i < one.rig.output.size(); ++i) {
            ASSERT_NEAR(one.rig.output[i], other.rig.output[i], 4e-3)
                << "seed " << seed << " frame " << i << ": " << told(steps);
            if (std::fabs(one.rig.output[i] - other.rig.output[i]) > 1e-4f) ++apart;
        }
        ASSERT_LE(apart, one.rig.output.size() / 100) << "seed " << seed << ": " << told(steps);
    }
}

/// How far two ramps over the same frames may be apart at frame `p`: each call takes a ramp's time
/// anew and lets it fall behind by 5e-5 of what passes inside the call.
double rampTolerance(const FaderStage& stage, std::int64_t p, int mostFrames) {
    double tolerance = 0;
    for (int i = 0; i < stage.records.count(); ++i) {
        const FadeRecord& record = stage.records.at(i);
        if (p < record.spliceStart || p >= record.spliceEnd) continue;
        const auto length = static_cast<double>(record.spliceEnd - record.spliceStart);
        const double t = (static_cast<double>(p - record.spliceStart) + 0.5) / length;
        const double late = 5e-5 * std::min(mostFrames / length, 1.0);
        tolerance += 1e-6 + late * (1 + 0.5 / std::sqrt(t) + 0.5 / std::sqrt(1 - t));
    }
    return tolerance;
}

TEST(FaderProperty, WhatIsMadeAgainAfterARewindIsTheSame) {
    constexpr int mostRecords = 5; // older ones would die away while they are made again
    int rewinds = 0;
    int untouched = 0;
    for (std::uint32_t seed = 5000; seed < 5300; ++seed) {
        const std::vector<Step> steps = randomSteps(seed, 40);
        std::mt19937 random{seed};
        Player straight{1};
        Player rewound{2};
        straight.callLimit = rewound.callLimit = 1152;
        rewound.trims = true;
        for (const Step& step : steps) {
            if (straight.rig.stage.records.count() >= mostRecords && step.does > Step::Does::run)
                continue;
            straight.play(step);
            rewound.play(step);
            for (auto again = random() % 4; again > 0; --again, ++rewinds)
                rewound.rewindAndReturn(static_cast<std::uint32_t>(random()));
            ASSERT_EQ(straight.rig.stage.framesOut, rewound.rig.stage.framesOut)
                << seed << ": " << told(steps);
        }
        const std::vector<float>& expected = straight.rig.output;
        const std::vector<float>& made = rewound.rig.output;
        ASSERT_EQ(made.size(), expected.size());
        for (std::size_t i = 0; i < made.size(); ++i) {
            const double tolerance =
                rampTolerance(straight.rig.stage, static_cast<std::int64_t>(i), 1152);
            if (tolerance == 0) {
                ++untouched;
                ASSERT_EQ(std::bit_cast<std::uint32_t>(made[i]),
                          std::bit_cast<std::uint32_t>(expected[i]))
                    << "seed " << seed << " frame " << i << ": " << told(steps);
            } else {
                ASSERT_NEAR(made[i], expected[i], tolerance)
                    << "seed " << seed << " frame " << i << ": " << told(steps);
            }
        }
    }
    EXPECT_GT(rewinds, 5000);
    EXPECT_GT(untouched, 500'000);
}

TEST(FaderProperty, WhatIsHeardStaysWithinTheSidesThatSound) {
    for (std::uint32_t seed = 1000; seed < 1200; ++seed) {
        Player player{seed};
        player.watchesPeak = true;
        for (const Step& step : randomSteps(seed, 120))
            player.play(step);
        ASSERT_FALSE(testing::Test::HasFatalFailure()) << "seed " << seed;
    }
}

TEST(FaderProperty, WhatIsTrimmedIsNeverNeeded) {
    for (std::uint32_t seed = 2000; seed < 2200; ++seed) {
        const std::vector<Step> steps = randomSteps(seed, 80);
        Player whole{3};
        Player trimmed{3};
        trimmed.trims = true;
        for (const Step& step : steps) {
            whole.play(step);
            trimmed.play(step);
            ASSERT_EQ(whole.rig.output, trimmed.rig.output)
                << "seed " << seed << ": " << told(steps);
        }
        EXPECT_LE(trimmed.rig.ring.count(), whole.rig.ring.count());
    }
}

TEST(FaderProperty, ItsBlocksAreInOrder) {
    for (std::uint32_t seed = 3000; seed < 3100; ++seed) {
        Player player{seed};
        for (const Step& step : randomSteps(seed, 80)) {
            player.play(step);
            const FxRing& ring = player.rig.outRing;
            for (int i = 1; i < ring.count(); ++i) {
                ASSERT_EQ(ring.at(i).posStart, ring.at(i - 1).posEnd);
                ASSERT_GE(ring.at(i).timeStart, ring.at(i - 1).timeEnd);
                ASSERT_GE(ring.at(i).timeEnd, ring.at(i).timeStart);
                ASSERT_EQ(ring.at(i).posEnd - ring.at(i).posStart, ring.at(i).frames());
            }
        }
    }
}

TEST(FaderProperty, AFadeOutGoesOverWhatWouldHavePlayed) {
    int compared = 0;
    for (std::uint32_t seed = 4000; seed < 4400; ++seed) {
        Player faded{6};
        Player plain{6};
        for (const Step& step : randomSteps(seed, 14)) {
            faded.play(step);
            plain.play(step);
        }
        if (plain.rig.stage.records.count() > 5) continue; // older ones would die away
        const Step cut{Step::Does::join, 1500, 0, 0};
        faded.cutAt(cut);
        plain.cutAt(cut);
        const std::int64_t from = plain.rig.stage.framesOut;
        std::int64_t frames = 0;
        faded.rig.stage.schedule(-1, faded.rig.clock.writtenEnd(), 200, false, 1, &frames, false,
                                 0);
        faded.rig.runTo(from + frames, 100);
        plain.rig.runTo(from + frames, 100);
        const auto both = std::min(faded.rig.output.size(), plain.rig.output.size());
        for (auto i = static_cast<std::size_t>(from); i < both; ++i) {
            const double t = (static_cast<double>(i) - static_cast<double>(from) + 0.5) /
                             static_cast<double>(frames);
            if (t >= 1.0) break;
            ++compared;
            ASSERT_NEAR(faded.rig.output[i],
                        static_cast<double>(plain.rig.output[i]) * std::sqrt(1 - t), 4e-3)
                << "seed " << seed << " frame " << i << " of " << from << " + " << frames;
        }
    }
    EXPECT_GT(compared, 50'000);
}

TEST(FaderProperty, ManyEditsInARowStayBounded) {
    Player player{4};
    player.watchesPeak = true;
    player.play({Step::Does::write, 30'000, 0, 5});
    player.play({Step::Does::run, 10'000, 0, 0});
    for (std::uint32_t i = 0; i < 200; ++i) {
        player.play({i % 3 == 0 ? Step::Does::seekFade : Step::Does::fadeIn, 3000, 160, 0});
        player.play({Step::Does::write, 100, 0, i});
        player.play({Step::Does::run, 50, 0, 0});
    }
    EXPECT_LE(player.rig.stage.records.count(), 34);
}

} // namespace
} // namespace velorine::test
