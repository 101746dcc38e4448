#include "tests/support/Heard.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace velorine::test {
namespace {

constexpr double pi = std::numbers::pi;

std::vector<std::int32_t> tone(int frames, double hz, int rate, std::int64_t from = 0,
                               std::int32_t offset = 0) {
    std::vector<std::int32_t> samples;
    for (int i = 0; i < frames; ++i) {
        const double phase = 2.0 * pi * hz * static_cast<double>(from + i) / rate;
        samples.insert(samples.end(), 2,
                       static_cast<std::int32_t>(0.25 * 0x1p31 * std::sin(phase)) + offset);
    }
    return samples;
}

TestHost::Setup resampling(float outRate, float speed = 1.0F) {
    TestHost::Setup setup;
    setup.settings = {{"Resample", "enable", 1, {}},
                      {"Resample", "srate", bitsOf(outRate), {}},
                      {"Resample", "speed", bitsOf(speed), {}},
                      {"Output", "bits", 32, {}}};
    return setup;
}

double amplitudeAt(const std::vector<HeardFrame>& heard, std::size_t from, int frames,
                   double cyclesPerFrame) {
    std::complex<double> sum;
    for (int i = 0; i < frames; ++i)
        sum += heard[from + static_cast<std::size_t>(i)].value * 0x1p-31 *
               std::polar(1.0, -2.0 * pi * cyclesPerFrame * i);
    return std::abs(sum) * 2.0 / frames;
}

TEST(Resampler, PlaysAtTheRateThatIsAskedFor) {
    TestHost host{resampling(48000.0F)};
    host.open(44100, 2, 32);
    host.write(tone(44100 * 3, 1000.0, 44100));
    host.close(true);
    host.advance(3000);
    ASSERT_EQ(host.sound.passages().size(), 1U);
    EXPECT_EQ(host.sound.passages()[0].format.rate, 48000);
    const auto heard = heardFrames(host.sound);
    EXPECT_NEAR(amplitudeAt(heard, 48000, 48000, 1000.0 / 48000), 0.25, 1e-4);
}

TEST(Resampler, FiveTracksThatAreOneSongSoundAsOneWithEverythingOn) {
    const auto heardInParts = [](const std::vector<int>& lengths) {
        TestHost::Setup setup = resampling(48000.0F, 1.05F);
        setup.kestrix = true;
        TestHost host{setup};
        std::int64_t from = 0;
        for (const int length : lengths) {
            host.open(44100, 2, 32);
            host.write(tone(length, 997.0, 44100, from, 1 << 29)); // no part begins with silence
            from += length;
            host.close(true);
        }
        host.advance(3000);
        std::vector<std::int32_t> values;
        for (const HeardFrame& frame : heardFrames(host.sound))
            values.push_back(frame.value);
        return values;
    };
    const auto whole = heardInParts({200'000});
    const auto parts = heardInParts({50'001, 1234, 98'765, 17, 49'983});
    ASSERT_GE(std::min(whole.size(), parts.size()), 200'000U);
    for (std::size_t i = 0; i < std::min(whole.size(), parts.size()); ++i)
        ASSERT_EQ(whole[i], parts[i]) << i;
}

TEST(Resampler, AChangedTempoIsHeardWithinItsMarginWithoutAClick) {
    TestHost host{resampling(48000.0F)};
    host.open(48000, 2, 32);
    host.write(tone(48000 * 5 / 2, 500.0, 48000));
    const std::int64_t call = host.clock.ticks();
    changeSettings({{"Resample", "speed", bitsOf(1.1F), {}}});
    host.write(tone(48000 * 3, 500.0, 48000, 48000 * 5 / 2));
    host.close(true);
    host.advance(3000);
    const auto heard = heardFrames(host.sound);
    // The tone's second difference, which a click would stand out of, and the place of the change.
    const double bend = std::pow(2.0 * pi * 550.0 / 48000, 2.0) * 0.25;
    std::size_t changed = 0;
    for (std::size_t i = 2000; i + 60'000 < heard.size(); ++i) {
        const auto at = [&](std::size_t k) { return heard[k].value * 0x1p-31; };
        ASSERT_LT(std::abs(at(i + 1) - 2.0 * at(i) + at(i - 1)), 1.05 * bend) << i;
        const double turned =
            std::abs(at(i) - 2.0 * std::cos(2.0 * pi * 500.0 / 48000) * at(i - 1) + at(i - 2));
        if (changed == 0 && turned > 1e-5) changed = i;
    }
    ASSERT_GT(changed, 0U);
    EXPECT_GT(heard[changed].tick, call);
    EXPECT_LE(heard[changed].tick - call, 1'100'000);
    EXPECT_NEAR(amplitudeAt(heard, changed + 4800, 48000, 550.0 / 48000), 0.25, 1e-3);
}

TEST(Resampler, ANewOutputRateReopensTheDeviceAndLosesNothing) {
    TestHost host{resampling(48000.0F)};
    host.open(48000, 2, 32);
    host.write(tone(48000 * 2, 500.0, 48000));
    changeSettings({{"Resample", "srate", bitsOf(96000.0F), {}}});
    host.write(tone(48000 * 2, 500.0, 48000, 48000 * 2));
    host.close(true);
    host.advance(4000);
    double seconds = 0.0;
    std::vector<int> rates;
    for (const auto& passage : host.sound.passages()) {
        if (rates.empty() || rates.back() != passage.format.rate)
            rates.push_back(passage.format.rate);
        const auto* const values = reinterpret_cast<const std::int32_t*>(passage.frames.data());
        std::int64_t first = -1;
        std::int64_t last = -1;
        for (std::int64_t i = 0; i < passage.count(); ++i)
            if (std::abs(values[2 * i]) > 1000) {
                if (first < 0) first = i;
                last = i;
            }
        if (first >= 0) seconds += static_cast<double>(last - first + 1) / passage.format.rate;
    }
    EXPECT_EQ(rates, (std::vector<int>{48000, 96000}));
    EXPECT_NEAR(seconds, 4.0, 0.02); // but for the filter's own tail
    const auto& passages = host.sound.passages();
    const auto& before = passages[passages.size() - 2];
    const std::int64_t ended =
        before.startTick + std::int64_t{before.count()} * 10'000'000 / before.format.rate;
    RecordProperty("gapMs", static_cast<int>((passages.back().startTick - ended) / 10'000));
}

TEST(Resampler, OutputTimeRunsAtTheTempo) {
    TestHost host{resampling(48000.0F, 1.25F)};
    host.open(44100, 2, 32);
    host.write(tone(44100 * 4, 500.0, 44100));
    const int before = host.out.GetOutputTime();
    host.advance(400);
    EXPECT_NEAR(host.out.GetOutputTime() - before, 500, 15);
}

TEST(Resampler, ASeekAndAPauseGoThroughIt) {
    TestHost host{resampling(48000.0F, 1.05F)};
    host.open(44100, 2, 32);
    host.write(tone(44100 * 3, 500.0, 44100));
    const std::int64_t call = host.clock.ticks();
    host.out.Flush(30'000);
    host.write(tone(44100 * 3, 2000.0, 44100));
    host.out.Pause(1);
    host.advance(1000);
    host.out.Pause(0);
    host.write(tone(44100 * 2, 2000.0, 44100, 44100 * 3));
    host.close(true);
    host.advance(3000);
    const auto heard = heardFrames(host.sound);
    std::size_t at = 0;
    while (heard[at].tick < call)
        ++at;
    EXPECT_GT(amplitudeAt(heard, at - 9600, 4800, 500.0 * 1.05 / 48000), 0.24);
    EXPECT_NEAR(amplitudeAt(heard, at + 24'000, 24'000, 2000.0 * 1.05 / 48000), 0.25, 2e-3);
    EXPECT_LT(amplitudeAt(heard, at + 24'000, 24'000, 500.0 * 1.05 / 48000), 1e-3);
}

} // namespace
} // namespace velorine::test
