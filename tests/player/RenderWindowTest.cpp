#include "player/RenderWindow.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

TEST(RenderWindow, PlainChainKeepsPlaceAndLength) {
    const RenderWindow window = renderWindow(123'457, 44100, {});
    EXPECT_EQ(window.leadFrames, 0);
    EXPECT_EQ(window.skipFrames, 0);
    EXPECT_EQ(window.frameCount, 123'457);
}

TEST(RenderWindow, LengthIsExactHoweverLong) {
    const std::int64_t frames = (std::int64_t{1} << 60) + 1; // no double holds it
    EXPECT_EQ(renderWindow(frames, 44100, {}).frameCount, frames);
    EXPECT_EQ(renderWindow(frames, 44100, {.outRate = 44100}).frameCount, frames);
}

TEST(RenderWindow, ProcessorGetsHalfItsFrameAhead) {
    // 45 ms, halves to even, in whole fours: of 1984.5 become 1984, of 1440 stay 1440.
    for (const auto& [rate, frameLength] :
         {std::pair{8000, 360}, std::pair{11025, 496}, std::pair{22050, 992},
          std::pair{32000, 1440}, std::pair{44100, 1984}, std::pair{48000, 2160},
          std::pair{96000, 4320}, std::pair{192000, 8640}}) {
        const RenderWindow window = renderWindow(1000, rate, {.kestrix = true});
        EXPECT_EQ(window.leadFrames, frameLength / 2) << rate;
        EXPECT_EQ(window.skipFrames, 0);
        EXPECT_EQ(window.frameCount, 1000);
    }
}

TEST(RenderWindow, RatesAndTempoScaleTheLength) {
    EXPECT_EQ(renderWindow(44100, 44100, {.outRate = 48000}).frameCount, 48000);
    EXPECT_EQ(renderWindow(48000, 48000, {.outRate = 44100}).frameCount, 44100);
    EXPECT_EQ(renderWindow(44100, 44100, {.speed = 1.25}).frameCount, 35280);
    EXPECT_EQ(renderWindow(1001, 44100, {.outRate = 48000, .speed = 0.5}).frameCount,
              2179);                                                     // 2179.05
    EXPECT_EQ(renderWindow(3, 96000, {.outRate = 48000}).frameCount, 2); // 1.5
}

} // namespace
} // namespace velorine
