#include "stages/FadeKernels.h"

#include "foundation/CpuFeatures.h"
#include "foundation/SampleFormat.h"
#include "stages/FadeRamp.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

using Bytes = std::vector<std::byte>;

struct Set {
    const FadeKernels* kernels;
    std::uint32_t needs;
};

class FadeKernelSets : public testing::TestWithParam<Set> {
protected:
    void SetUp() override {
        if (!covers(cpuFeatures(), GetParam().needs))
            GTEST_SKIP() << "no " << GetParam().kernels->name << " here";
    }

    template <typename Sample>
    static std::vector<Sample> mixed(FadeRamp ramp, const FadeKernels& kernels,
                                     const std::vector<Sample>& before,
                                     const std::vector<Sample>& after) {
        std::vector<Sample> out(before.size() + 1, Sample{77}); // one behind the end
        ramp.oldSide = before.data();
        ramp.newSide = after.data();
        ramp.out = out.data();
        mixRamp(ramp, kernels);
        EXPECT_EQ(out.back(), Sample{77});
        out.pop_back();
        return out;
    }

    const FadeKernels& tested = *GetParam().kernels;
};

constexpr int types[] = {sampleType::int16, sampleType::int32, sampleType::float32};

/// Noise with silences and with the loudest and oddest samples that there are.
Bytes noise(int type, int samples, std::mt19937& random) {
    Bytes bytes;
    const auto put = [&](const auto sample) {
        const auto* const raw = reinterpret_cast<const std::byte*>(&sample);
        bytes.insert(bytes.end(), raw, raw + sizeof sample);
    };
    for (int i = 0; i < samples; ++i) {
        const std::uint32_t choice = random() % 16;
        const auto word = static_cast<std::int32_t>(random());
        if (type == sampleType::int16)
            put(static_cast<std::int16_t>(choice == 0   ? 0
                                          : choice == 1 ? -32'768
                                          : choice == 2 ? 32'767
                                                        : word >> 16));
        else if (type == sampleType::int32)
            put(choice == 0   ? 0
                : choice == 1 ? std::numeric_limits<std::int32_t>::min()
                : choice == 2 ? std::numeric_limits<std::int32_t>::max()
                              : word);
        else
            put(choice == 0   ? 0.0f
                : choice == 1 ? -0.0f
                : choice == 2 ? 1e-42f
                : choice == 3 ? 3e38f
                : choice == 4 ? std::numeric_limits<float>::infinity()
                              : static_cast<float>(word) * 0x1p-31f);
    }
    return bytes;
}

TEST_P(FadeKernelSets, YieldTheBitsOfThePlainForm) {
    std::mt19937 random{21};
    for (int round = 0; round < 6000; ++round) {
        FadeRamp ramp;
        ramp.type = types[round % 3];
        ramp.channels = round % 7 == 0 ? 6 : 1 + static_cast<int>(random() % 2);
        ramp.frames = static_cast<int>(random() % (round % 10 == 0 ? 1200 : 40));
        ramp.length = ramp.frames + 1 + static_cast<int>(random() % 9000);
        ramp.first = static_cast<std::int64_t>(random()) % (ramp.length - ramp.frames);
        ramp.linear = random() % 2 == 0;
        ramp.scale = random() % 3 == 0 ? 0.2 * static_cast<double>(random() % 6) : 1.0;
        const Bytes before = noise(ramp.type, ramp.frames * ramp.channels, random);
        const Bytes after = noise(ramp.type, ramp.frames * ramp.channels, random);
        const auto sides = random() % 8;
        if (sides != 1) ramp.oldSide = before.data();
        if (sides != 2) ramp.newSide = after.data();

        Bytes expected(before.size());
        ramp.out = expected.data();
        mixRamp(ramp, plainFadeKernels);
        Bytes out(before.size());
        ramp.out = out.data();
        if (sides >= 6) { // into a side
            out = after;
            ramp.newSide = out.data();
        }
        mixRamp(ramp, tested);
        const auto same = [&] {
            if (ramp.type != sampleType::float32) return out == expected;
            for (std::size_t i = 0; i < out.size(); i += sizeof(float)) {
                std::uint32_t a = 0;
                std::uint32_t b = 0;
                std::memcpy(&a, out.data() + i, sizeof a);
                std::memcpy(&b, expected.data() + i, sizeof b);
                const bool noNumbers =
                    std::isnan(std::bit_cast<float>(a)) && std::isnan(std::bit_cast<float>(b));
                if (a != b && !noNumbers) return false; // of no-numbers the bits may differ
            }
            return true;
        };
        ASSERT_TRUE(same()) << "round " << round << ", type " << ramp.type << ", " << ramp.channels
                            << " channels, " << ramp.frames << " frames, linear " << ramp.linear;
    }
}

TEST_P(FadeKernelSets, RoundWhatLiesBetweenTwoIntegersToTheEvenOne) {
    // At t = 3/4 the old side counts half.
    FadeRamp ramp{sampleType::int16, 1, 4, nullptr, nullptr, nullptr, 10, 14, false, 1.0};
    const std::vector<std::int16_t> none(4, 0);
    for (const auto& [sample, rounded] : {std::pair{3, 2}, {5, 2}, {-1, 0}, {-3, -2}, {7, 4}}) {
        const std::vector<std::int16_t> old(4, static_cast<std::int16_t>(sample));
        EXPECT_EQ(mixed(ramp, tested, old, none)[0], rounded) << sample;
        FadeRamp wide = ramp;
        wide.type = sampleType::int32;
        EXPECT_EQ(mixed(wide, tested, std::vector<std::int32_t>(4, sample),
                        std::vector<std::int32_t>(4, 0))[0],
                  rounded)
            << sample;
    }
}

TEST_P(FadeKernelSets, SidesThatCancelLeaveNothing) {
    // At t = 1/2 both count alike.
    const FadeRamp ramp{sampleType::float32, 1, 4, nullptr, nullptr, nullptr, 3, 7, false, 1.0};
    const std::vector<float> before(4, 0.3f);
    const std::vector<float> after(4, -0.3f);
    const auto out = mixed(ramp, tested, before, after);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_LT(out[1], 0.0f);
}

INSTANTIATE_TEST_SUITE_P(Kernels, FadeKernelSets,
                         testing::Values(Set{&plainFadeKernels, 0},
                                         Set{&avx2FadeKernels, cpuFeature::avx2Fma}),
                         [](const auto& set) { return std::string{set.param.kernels->name}; });

TEST(FadeKernels, TheBestThatTheProcessorHasIsChosen) {
    EXPECT_EQ(&fadeKernels(0), &plainFadeKernels);
    EXPECT_EQ(&fadeKernels(cpuFeature::avx2Fma), &avx2FadeKernels);
    EXPECT_EQ(&fadeKernels(cpuFeature::avx2Fma | cpuFeature::avx512), &avx2FadeKernels);
}

} // namespace
} // namespace velorine::test
