#include "tests/pulse/Await.h"
#include "tests/pulse/Listening.h"
#include "tests/support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>

namespace velorine::test {
namespace {

struct Change {
    const char* name;
    bool fades;
    int limitMs;
    std::function<void(LiveHost&)> press;
};

class PulseResponse : public testing::TestWithParam<Change> {};

/// From the key to the first recorded sample that isn't what would have played, in ms.
double responseMs(const Change& change) {
    LiveHost::Setup setup;
    setup.fadeOnSeek = setup.fadeOnStop = change.fades;
    Listening room{setup};
    room.host.begin();
    room.host.writeMs(1500);
    const std::int64_t pressed = Recorder::ticksNow();
    change.press(room.host);
    std::int64_t changed = -1;
    EXPECT_TRUE(comesTrue([&] {
        changed = firstChange(room.recorder.heard(), pressed);
        return changed >= 0;
    }));
    room.host.quit();
    const auto list = room.sound();
    EXPECT_EQ(continuityFault(list, 0), "") << described(list);
    return static_cast<double>(changed - pressed) / 10'000.0;
}

TEST_P(PulseResponse, IsHeardInTime) {
    // The machine may be busy with something else just then.
    double ms = responseMs(GetParam());
    for (int attempt = 1; attempt < 3 && ms > GetParam().limitMs; ++attempt)
        ms = responseMs(GetParam());
    std::cout << GetParam().name << ": " << ms << " ms\n";
    EXPECT_LE(ms, GetParam().limitMs);
    EXPECT_GE(ms, 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, PulseResponse,
    testing::Values(Change{"Pause", true, 100, [](LiveHost& host) { host.out.Pause(1); }},
                    Change{"CutStop", false, 100, [](LiveHost& host) { host.close(false); }},
                    Change{"FadedSeek", true, 150, [](LiveHost& host) { host.seek(9000); }},
                    Change{"FadedStop", true, 200, [](LiveHost& host) { host.close(false); }}),
    [](const auto& tested) { return std::string{tested.param.name}; });

/// Milliseconds that the position is ahead of the recording, at many moments of four seconds;
/// sorted.
std::vector<double> positionAhead() {
    struct Look {
        std::int64_t tick;
        int frame;
    };
    Listening room;
    room.host.begin();
    room.host.writeMs(700);
    std::vector<Look> looks;
    EXPECT_TRUE(room.host.writeUntil([&] {
        const int ms = room.host.out.GetOutputTime();
        looks.push_back({Recorder::ticksNow(), ms * 48});
        return ms >= 4000;
    }));
    room.host.quit();

    const std::int64_t first = room.recorder.tickAt(0);
    const auto heard = room.recorder.heard();
    std::vector<double> ahead;
    for (const Look& look : looks) {
        const std::int64_t index = (look.tick - first) * 48 / 10'000;
        if (index < 0 || index >= static_cast<std::int64_t>(heard.size())) continue;
        const std::int32_t value = heard[static_cast<std::size_t>(index)].value;
        if (value != 0) ahead.push_back((look.frame - (value - rampStart)) / 48.0);
    }
    std::sort(ahead.begin(), ahead.end());
    return ahead;
}

TEST(PulsePosition, FollowsWhatIsRecorded) {
    // A server that runs dry for a moment takes the position with it by as much: not the rule.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const std::vector<double> ahead = positionAhead();
        ASSERT_GT(ahead.size(), 500U);
        const auto share = [&](double part) {
            return ahead[static_cast<std::size_t>(part * static_cast<double>(ahead.size() - 1))];
        };
        std::cout << "position against recording: " << ahead.front() << ", 5 % " << share(0.05)
                  << ", middle " << share(0.5) << ", 95 % " << share(0.95) << ", " << ahead.back()
                  << " ms\n";
        // 3 ms, and the 1 ms step of the position. A frame is recorded as the sink takes it: the
        // sink's own 15 ms and the way of the recording lie in between.
        const bool steady = share(0.95) - share(0.5) <= 4.0 && share(0.5) - share(0.05) <= 4.0;
        if (steady && share(0.5) < 5.0 && share(0.5) > -30.0) return;
    }
    FAIL() << "not within 3 ms in three attempts";
}

} // namespace
} // namespace velorine::test
