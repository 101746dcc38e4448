#include "tests/support/ClickDetector.h"
#include "tests/support/Heard.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

constexpr int rate = 48000;
constexpr double amplitude = 0.25; ///< of full scale
constexpr double lowHz = 110;
constexpr double highHz = 175;

std::vector<double> sine(int frames, double hz, double phase = 0) {
    std::vector<double> samples;
    for (int i = 0; i < frames; ++i)
        samples.push_back(amplitude * std::sin(phase + 2 * std::numbers::pi * hz * i / rate));
    return samples;
}

/// What the steepest fade of a journey may bend tones by, both heard at once.
struct Fade {
    double frames;
    bool linear;
};

double boundFor(const Fade& fade, int tones = 2) {
    const double level = amplitude * std::sqrt(tones);
    // A fade's time falls a little behind within a block, which makes its last step higher.
    return 1.1 * (bendOfSine(level, highHz, rate) +
                  bendOfFade(level, highHz, rate, fade.frames, fade.linear));
}

constexpr Fade seekFade{0.160 * rate, false};
constexpr Fade nextTrackFade{0.040 * rate, false};
constexpr Fade stopFade{0.400 * rate, true}; ///< at least: it has what is queued

std::string described(const std::vector<Click>& clicks, const Fade& fade) {
    std::ostringstream text;
    for (std::size_t i = 0; i < std::min<std::size_t>(clicks.size(), 5); ++i)
        text << "click of " << clicks[i].height << " at frame " << clicks[i].frame << "\n";
    text << "bound " << boundFor(fade);
    return text.str();
}

/// A host that plays tones; another one in each run of data behind a seek or an open.
class Tones {
public:
    explicit Tones(const TestHost::Setup& setup = {}) : host(setup) { open(); }

    void open() {
        host.open(rate, 2, 32);
        nextTone();
    }
    void writeMs(int ms) { host.write(piece(ms * rate / 1000)); }
    /// Writes what is permitted at this moment of `ms`.
    void writePermitted(int ms) {
        for (int left = ms * rate / 1000; left > 0; left -= 1152) {
            const std::size_t before = made;
            const auto samples = piece(std::min(left, 1152));
            if (host.writeOnce(reinterpret_cast<const char*>(samples.data()), samples.size() * 4) ==
                0) {
                made = before;
                return;
            }
        }
    }
    void seek(int ms) {
        host.out.Flush(ms);
        nextTone();
    }
    void stop() { host.close(false); }

    /// What was heard from 100 ms on: a track begins with a step of its own.
    std::vector<double> heard() {
        std::vector<double> samples;
        for (const HeardFrame& frame : heardFrames(host.sound))
            samples.push_back(frame.value * 0x1p-31);
        samples.erase(samples.begin(),
                      samples.begin() + std::min<std::ptrdiff_t>(rate / 10, std::ssize(samples)));
        return samples;
    }

    TestHost host;

private:
    void nextTone() {
        hz = hz == lowHz ? highHz : lowHz;
        made = 0;
    }
    /// The tone begins at its peak, where a cut would be heard most.
    std::vector<std::int32_t> piece(int frames) {
        std::vector<std::int32_t> samples;
        for (int i = 0; i < frames; ++i, ++made) {
            const double phase = 2 * std::numbers::pi * hz * static_cast<double>(made) / rate;
            samples.insert(samples.end(), 2,
                           static_cast<std::int32_t>(amplitude * 0x1p31 * std::cos(phase)));
        }
        return samples;
    }

    double hz = highHz;
    std::size_t made = 0; ///< frames of the tone
};

// -- The detector ------------------------------------------------------------------------------

TEST(ClickDetector, HearsNoneInAToneAndNoneInAFadeByTheFormula) {
    const auto before = sine(40'000, lowHz, 1.0);
    const auto after = sine(40'000, highHz, 2.0);
    EXPECT_TRUE(clicksIn(before, bendOfSine(amplitude, lowHz, rate) * 1.0001).empty());
    std::vector<double> faded;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const double t =
            std::clamp((static_cast<double>(i) - 10'000 + 0.5) / seekFade.frames, 0.0, 1.0);
        faded.push_back(before[i] * std::sqrt(1 - t) + after[i] * std::sqrt(t));
    }
    EXPECT_TRUE(clicksIn(faded, boundFor(seekFade)).empty());
}

TEST(ClickDetector, HearsAStepOfFourPercentOfTheTone) {
    for (const Fade& fade : {seekFade, nextTrackFade, stopFade}) {
        auto stepped = sine(10'000, lowHz);
        for (std::size_t i = 5000; i < stepped.size(); ++i)
            stepped[i] += 0.04 * amplitude;
        const auto clicks = clicksIn(stepped, boundFor(fade));
        ASSERT_FALSE(clicks.empty()) << boundFor(fade);
        EXPECT_NEAR(static_cast<double>(clicks.front().frame), 5000, 1);
    }
}

TEST(ClickDetector, HearsALostFrame) {
    auto samples = sine(10'000, 1000);
    samples.erase(samples.begin() + 4800); // where the tone is steepest
    EXPECT_FALSE(clicksIn(samples, 1.0001 * bendOfSine(amplitude, 1000, rate)).empty());
}

TEST(ClickDetector, HearsTheCutOfASeekWithoutAFade) {
    TestHost::Setup setup;
    setup.fadeOnSeek = false;
    Tones tones{setup};
    tones.writeMs(2504);
    tones.seek(10'000);
    tones.host.advance(500);
    const auto clicks = clicksIn(tones.heard(), boundFor(seekFade));
    EXPECT_FALSE(clicks.empty());
}

// -- Transitions that have a fade --------------------------------------------------------------

TEST(NoClick, IsHeardInASeek) {
    for (int i = 0; i < 12; ++i) {
        Tones tones;
        tones.writeMs(2500 + 7 * i);
        tones.host.advance(3 * i);
        tones.seek(10'000);
        tones.host.advance(11 * i);
        tones.writeMs(2000);
        tones.stop();
        tones.host.advance(3000);
        const auto heard = tones.heard();
        EXPECT_GT(heard.size(), std::size_t{4 * rate});
        const auto clicks = clicksIn(heard, boundFor(seekFade));
        EXPECT_TRUE(clicks.empty()) << i << ": " << described(clicks, seekFade);
    }
}

TEST(NoClick, IsHeardInSeeksWithinARunningFade) {
    Tones tones;
    tones.writeMs(3000);
    for (int i = 0; i < 3; ++i) {
        tones.seek(1000 * i);
        tones.writeMs(90);
        tones.host.advance(40);
    }
    tones.writeMs(2000);
    tones.stop();
    tones.host.advance(3000);
    // Four tones sound at once, each bent by the fades of those behind it.
    const double bound = 2 * boundFor(seekFade, 4);
    EXPECT_TRUE(clicksIn(tones.heard(), bound).empty());
}

TEST(NoClick, IsHeardInAStop) {
    for (int i = 0; i < 12; ++i) {
        Tones tones;
        tones.writeMs(2500 + 7 * i);
        tones.host.advance(3 * i);
        tones.stop();
        tones.host.advance(4000);
        const auto clicks = clicksIn(tones.heard(), boundFor(stopFade, 1));
        EXPECT_TRUE(clicks.empty()) << i << ": " << described(clicks, stopFade);
    }
}

TEST(NoClick, IsHeardWhenTheNextTrackFollowsAStop) {
    for (const int gapMs : {0, 40, 300, 900, 2500, 9000}) {
        Tones tones;
        tones.writeMs(3000);
        tones.stop();
        tones.host.advance(gapMs);
        tones.open();
        tones.writeMs(2000);
        tones.stop();
        tones.host.advance(3000);
        const auto clicks = clicksIn(tones.heard(), boundFor(nextTrackFade));
        EXPECT_TRUE(clicks.empty()) << gapMs << ": " << described(clicks, nextTrackFade);
    }
}

TEST(NoClick, IsHeardWhereAPauseEndsAtAnotherPlace) {
    Tones tones;
    tones.writeMs(3000);
    tones.host.out.Pause(1);
    tones.host.advance(500);
    const std::size_t paused = tones.heard().size();
    tones.seek(30'000);
    tones.writePermitted(200);
    tones.host.advance(700);
    tones.host.out.Pause(0);
    tones.writeMs(2000);
    tones.stop();
    tones.host.advance(3000);
    const auto heard = tones.heard();
    const std::span<const double> resumed{heard.begin() + static_cast<std::ptrdiff_t>(paused),
                                          heard.end()};
    const auto clicks = clicksIn(resumed, boundFor(seekFade));
    EXPECT_TRUE(clicks.empty()) << described(clicks, seekFade);
    EXPECT_GT(*std::ranges::max_element(resumed), 0.99 * amplitude) << "the new tone is heard";
}

// -- Transitions that have none ----------------------------------------------------------------

/// What was heard without runs of silence.
std::vector<double> withoutSilence(const std::vector<double>& heard) {
    constexpr std::size_t shortest = 20; // frames; a tone passes zero at once
    std::vector<double> sounding;
    for (std::size_t i = 0; i < heard.size();) {
        std::size_t end = i;
        while (end < heard.size() && heard[end] == 0)
            ++end;
        if (end - i >= shortest)
            i = end;
        else
            sounding.push_back(heard[i++]);
    }
    return sounding;
}

TEST(NoClick, IsLeftWhereAPauseIsTakenOut) {
    double highestStep = 0;
    for (int i = 0; i < 12; ++i) {
        Tones tones;
        tones.writeMs(2500 + 7 * i);
        tones.host.out.Pause(1);
        tones.host.advance(400 + 300 * i);
        highestStep = std::max(highestStep, std::abs(withoutSilence(tones.heard()).back()));
        tones.host.out.Pause(0);
        tones.writeMs(1500);
        tones.stop();
        tones.host.advance(3000);
        const auto heard = withoutSilence(tones.heard());
        const auto clicks = clicksIn(heard, boundFor(stopFade, 1));
        EXPECT_TRUE(clicks.empty()) << i << ": " << described(clicks, stopFade);
    }
    // A pause switches at one frame: the step is as high as the tone stands there.
    RecordProperty("highestStepOfAPause", std::to_string(highestStep));
    EXPECT_GT(highestStep, 0.5 * amplitude);
    EXPECT_LE(highestStep, amplitude);
}

TEST(NoClick, IsHeardBeforeNorBehindAPauseInsideAFade) {
    for (const int pausedAfterMs : {20, 60, 130, 200}) {
        Tones tones;
        tones.writeMs(3000);
        tones.seek(10'000);
        tones.writeMs(100);
        tones.host.advance(pausedAfterMs);
        tones.host.out.Pause(1);
        tones.host.advance(700);
        const auto paused = static_cast<std::ptrdiff_t>(withoutSilence(tones.heard()).size());
        tones.host.out.Pause(0);
        tones.writeMs(1500);
        tones.stop();
        tones.host.advance(3000);
        const auto heard = withoutSilence(tones.heard());
        const std::span<const double> all{heard};
        // The pause puts the fade to rest: the new audio goes on behind it at its full level.
        for (const auto side : {all.first(static_cast<std::size_t>(paused)),
                                all.subspan(static_cast<std::size_t>(paused))}) {
            const auto clicks = clicksIn(side, boundFor(seekFade));
            EXPECT_TRUE(clicks.empty()) << pausedAfterMs << ": " << described(clicks, seekFade);
        }
    }
}

} // namespace
} // namespace velorine::test
