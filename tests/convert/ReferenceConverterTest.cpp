#include "tests/convert/ReferenceConverter.h"
#include "tests/convert/ConvertSupport.h"

#include <gtest/gtest.h>

#include <utility>

namespace velorine {
namespace {

constexpr int frames = 61;

/// Formats that the converter goes through one after the other, without a reset in between.
std::vector<std::pair<SampleFormat, SampleFormat>> formatPairs() {
    constexpr std::array<std::pair<int, int>, 9> channels = {
        {{1, 1}, {1, 2}, {2, 1}, {2, 2}, {2, 6}, {6, 2}, {3, 3}, {1, 6}, {6, 1}}};
    std::vector<std::pair<SampleFormat, SampleFormat>> pairs;
    for (const auto& [in, out] : channels)
        for (int source = 0; source <= 6; ++source)
            for (int destination = 0; destination <= 6; ++destination)
                for (const int layout : {fullWidth, 27, 23, 20, 15, 12, 7, 3})
                    // Fewer valid bits than that in type 3 have no meaning that is settled.
                    if (destination != 3 || layout >= 20)
                        pairs.emplace_back(formatOf(source, in),
                                           formatOf(destination, out, layout));
    return pairs;
}

class ConvertsAsOnPaper : public testing::TestWithParam<std::pair<bool, bool>> {};

TEST_P(ConvertsAsOnPaper, EveryPairOfFormats) {
    constexpr std::uint32_t seed = 4711;
    const FixedEntropy entropy{seed};
    ReferenceConverter paper{seed};
    SampleConverter plain{0};
    SampleConverter best;
    std::tie(paper.ditherOn, paper.shapingOn) = GetParam();
    plain.ditherOn = best.ditherOn = paper.ditherOn;
    plain.shapingOn = best.shapingOn = paper.shapingOn;

    std::uint32_t noise = 1;
    for (const auto& [from, to] : formatPairs()) {
        const Bytes source = noiseBytes(from.type, frames * from.channels, ++noise);
        const Bytes expected = paper.convert(source, from, to, frames);
        const auto& a = from;
        const auto& b = to;
        const auto where = [&] {
            return testing::Message()
                   << "type " << a.type << " to " << b.type << ", channels " << a.channels << " to "
                   << b.channels << ", layout " << b.layout;
        };
        ASSERT_EQ(convertBytes(plain, source, from, to, ReferenceConverter::unwritten), expected)
            << where();
        ASSERT_EQ(convertBytes(best, source, from, to, ReferenceConverter::unwritten), expected)
            << where() << ", " << best.kernelName();
    }
}

INSTANTIATE_TEST_SUITE_P(Switches, ConvertsAsOnPaper,
                         testing::Values(std::pair{true, false}, std::pair{true, true},
                                         std::pair{false, false}, std::pair{false, true}));

} // namespace
} // namespace velorine
