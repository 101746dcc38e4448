#include "tests/support/Heard.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>

namespace velorine::test {
namespace {

constexpr int rate = 48000;
constexpr double pi = std::numbers::pi;

/// A tone over an offset that is never silent, one channel's worth twice.
std::vector<std::int32_t> tone(int frames, double hz, double amplitude, std::int64_t from = 0) {
    std::vector<std::int32_t> samples;
    for (int i = 0; i < frames; ++i) {
        const double phase = 2.0 * pi * hz * static_cast<double>(from + i) / rate;
        const auto value = static_cast<std::int32_t>(amplitude * 0x1p31 * std::sin(phase));
        samples.push_back(value);
        samples.push_back(value);
    }
    return samples;
}

/// Amplitude of a tone in `frames` frames of what was heard.
double amplitudeAt(const std::vector<HeardFrame>& heard, std::size_t from, int frames, double hz) {
    std::complex<double> sum;
    for (int i = 0; i < frames; ++i)
        sum += heard[from + static_cast<std::size_t>(i)].value * 0x1p-31 *
               std::polar(1.0, -2.0 * pi * hz * i / rate);
    return std::abs(sum) * 2.0 / frames;
}

TestHost::Setup withProcessor() {
    TestHost::Setup setup;
    setup.kestrix = true;
    setup.settings = {{"Eq", "magnitude", bitsOf(20.0F / 28.0F), {}}};
    return setup;
}

/// Plays `ms` of a tone and lets `change` happen 2.5 s in.
template <typename Change>
std::vector<HeardFrame> heardWith(const TestHost::Setup& setup, std::int64_t& call,
                                  Change&& change) {
    TestHost host{setup};
    host.open(rate, 2, 32);
    host.write(tone(rate * 5 / 2, 3000.0, 0.1));
    call = host.clock.ticks();
    change(host);
    host.write(tone(rate * 5 / 2, 3000.0, 0.1, rate * 5 / 2));
    host.close(true);
    host.advance(3000);
    return heardFrames(host.sound);
}

/// First index at which two runs differ by more than their dither.
std::size_t firstDifference(const std::vector<HeardFrame>& a, const std::vector<HeardFrame>& b) {
    const std::size_t shared = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < shared; ++i)
        if (std::abs(static_cast<double>(a[i].value) - static_cast<double>(b[i].value)) > 0x1p17)
            return i;
    return shared;
}

TEST(Processor, AChangedSettingIsHeardWithinItsMarginAndNothingIsLost) {
    const struct {
        const char* name;
        std::uint32_t value;
    } changes[] = {{"atten4", bitsOf(-9.0F)},
                   {"eqall", bitsOf(0.5F)},
                   {"headroom", bitsOf(9.0F)},
                   {"magnitude", 0},
                   {"comprlim4", 0}};
    std::int64_t call = 0;
    const std::vector<HeardFrame> plain = heardWith(withProcessor(), call, [](TestHost&) {});
    for (const auto& [name, value] : changes) {
        const ModuleOptions::Setting setting{"Eq", name, value, {}};
        const auto heard =
            heardWith(withProcessor(), call, [&](TestHost&) { changeSettings({setting}); });
        const std::size_t at = firstDifference(plain, heard);
        ASSERT_LT(at, heard.size()) << name;
        EXPECT_GT(heard[at].tick, call) << name;
        EXPECT_LE(heard[at].tick - call, 1'100'000) << name; // 80 + 30 ms
        // The same number of frames was heard, but for where the last whole hop ends.
        const auto lengthOf = [](const std::vector<HeardFrame>& frames) {
            std::size_t end = frames.size();
            while (end > 0 && std::abs(frames[end - 1].value) < 0x1p17)
                --end;
            return static_cast<double>(end);
        };
        EXPECT_NEAR(lengthOf(heard), lengthOf(plain), 1080.0) << name;
        // And the tone goes on in phase: nothing is left out between.
        const double amplitude = amplitudeAt(heard, at + 24'000, 4800, 3000.0);
        const double whole = amplitudeAt(heard, at + 24'000, 48'000, 3000.0);
        EXPECT_NEAR(amplitude, whole, 0.01 * whole) << name;
    }
}

TEST(Processor, SwitchedOffItsHeadroomIsMadeUpFor) {
    std::int64_t call = 0;
    TestHost::Setup setup = withProcessor();
    setup.settings.push_back({"Eq", "magnitude", 0, {}});
    const auto heard = heardWith(setup, call, [](TestHost&) {
        changeSettings({{"Eq", "enable", 0, {}}});
    });
    const double before = amplitudeAt(heard, rate, 4800, 3000.0);
    const double after = amplitudeAt(heard, 4 * rate, 4800, 3000.0);
    EXPECT_NEAR(before, 0.1 * std::pow(10.0, -3.2 / 20.0), 1e-4);
    EXPECT_NEAR(after, before, 1e-4);
}

TEST(Processor, SwitchedOffAndOnTheToneNeverStops) {
    std::int64_t call = 0;
    const auto heard = heardWith(withProcessor(), call, [](TestHost& host) {
        for (int i = 0; i < 6; ++i) {
            changeSettings({{"Eq", "enable", static_cast<std::uint32_t>(i % 2), {}}});
            host.write(tone(rate / 10, 3000.0, 0.1, rate * 5 / 2 + i * rate / 10));
        }
    });
    for (std::size_t from = rate / 10; from + rate < heard.size(); from += 480)
        ASSERT_GT(amplitudeAt(heard, from, 480, 3000.0), 0.03) << "at frame " << from;
}

TEST(Processor, AFadedSeekGoesFromOneToneToTheOther) {
    TestHost host{withProcessor()};
    host.open(rate, 2, 32);
    host.write(tone(rate * 5 / 2, 1000.0, 0.1));
    const std::int64_t call = host.clock.ticks();
    host.out.Flush(60'000);
    host.write(tone(rate * 3, 5000.0, 0.1));
    host.close(true);
    host.advance(3000);
    const auto heard = heardFrames(host.sound);
    const auto frameAt = [&](std::int64_t tick) {
        return static_cast<std::size_t>(
            std::lower_bound(
                heard.begin(), heard.end(), tick,
                [](const HeardFrame& frame, std::int64_t t) { return frame.tick < t; }) -
            heard.begin());
    };
    const std::size_t at = frameAt(call);
    EXPECT_LT(amplitudeAt(heard, at - 4800, 2400, 5000.0), 1e-4);
    // Margin, fade and 50 ms on, only the new tone is there.
    const std::size_t done = frameAt(call + 4'000'000);
    EXPECT_LT(amplitudeAt(heard, done, 4800, 1000.0), 1e-3);
    EXPECT_GT(amplitudeAt(heard, done, 4800, 5000.0), 0.05);
    for (std::size_t from = at; from < done; from += 240) {
        const double both =
            amplitudeAt(heard, from, 480, 1000.0) + amplitudeAt(heard, from, 480, 5000.0);
        ASSERT_GT(both, 0.02) << from - at; // the ramps cross, nothing drops out
    }
}

TEST(Processor, ThreeTracksThatAreOneSongSoundAsOne) {
    const auto heardInParts = [](std::vector<int> lengths) {
        TestHost::Setup setup = withProcessor();
        setup.settings.push_back({"Output", "bits", 32, {}});
        TestHost host{setup};
        std::int64_t from = 0;
        for (std::size_t i = 0; i < lengths.size(); ++i) {
            host.open(rate, 2, 32);
            auto samples = tone(lengths[i], 997.0, 0.3, from);
            for (std::int32_t& sample : samples)
                sample += 1 << 29; // no part begins with silence
            host.write(samples);
            from += lengths[i];
            host.close(true);
        }
        host.advance(3000);
        std::vector<std::int32_t> values;
        for (const HeardFrame& frame : heardFrames(host.sound))
            values.push_back(frame.value);
        return values;
    };
    const auto whole = heardInParts({150'000});
    const auto parts = heardInParts({50'001, 1234, 98'765});
    ASSERT_GE(std::min(whole.size(), parts.size()), 140'000U);
    for (std::size_t i = 0; i < std::min(whole.size(), parts.size()); ++i)
        ASSERT_LE(std::abs(whole[i] - parts[i]), 2)
            << i; // the dither, a 64th of a single's last bit
}

TEST(Processor, StoredSettingsThatChangeAreTakenOverOnce) {
    TestHost::Setup setup = withProcessor();
    TestHost host{setup};
    host.open(rate, 2, 32);
    host.write(tone(rate * 2, 3000.0, 0.1));
    EXPECT_FALSE(refreshSettings());
    host.store.set(keyPath(settingsRoot, "Eq"), "eqall", bitsOf(0.5F));
    EXPECT_TRUE(refreshSettings());
    EXPECT_FALSE(refreshSettings());
    host.write(tone(rate * 3, 3000.0, 0.1, rate * 2));
    host.close(true);
    host.advance(3000);
    const auto heard = heardFrames(host.sound);
    const double before = amplitudeAt(heard, rate, 4800, 3000.0);
    const double after = amplitudeAt(heard, 4 * rate, 4800, 3000.0);
    EXPECT_LT(after, 0.9 * before);
    host.out.Quit();
    EXPECT_EQ(host.store.dword(keyPath(settingsRoot, "Eq"), "eqall"), bitsOf(0.5F));
}

} // namespace
} // namespace velorine::test
