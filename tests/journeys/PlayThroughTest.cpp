#include "tests/support/Signals.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velorine::test {
namespace {

/// What was heard of a ramp, without the silence around it.
std::vector<std::int32_t> audible(const std::vector<std::int32_t>& frames) {
    std::vector<std::int32_t> loud;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(loud),
                 [](std::int32_t x) { return x != 0; });
    return loud;
}

TEST(PlayThrough, EveryFrameIsHeardOnceAndInOrder) {
    TestHost host;
    const int frames = 44100 * 8;
    host.open(44100, 2, 32);
    host.write(ramp(frames, 2));
    host.close(true);
    host.out.Quit();

    const auto heard = audible(firstChannel(host.sound.heard<std::int32_t>(), 2));
    EXPECT_EQ(heard, ramp(frames, 1));
}

} // namespace
} // namespace velorine::test
