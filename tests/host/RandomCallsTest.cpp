#include "foundation/Thread.h"
#include "host/Module.h"
#include "tests/support/TestHost.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <random>

namespace velorine::test {
namespace {

/// Arguments that a host might get wrong.
class AnyArgument {
public:
    explicit AnyArgument(std::uint32_t seed) : random(seed) {}

    std::uint32_t next() { return static_cast<std::uint32_t>(random()); }
    int below(int limit) { return static_cast<int>(next() % static_cast<unsigned>(limit)); }

    int number() {
        constexpr std::array odd{0,
                                 1,
                                 -1,
                                 2,
                                 3,
                                 127,
                                 128,
                                 129,
                                 -128,
                                 -129,
                                 255,
                                 256,
                                 1000,
                                 44100,
                                 -44100,
                                 2'147'483'647,
                                 -2'147'483'647 - 1};
        switch (next() % 3) {
        case 0:
            return odd[next() % odd.size()];
        case 1:
            return static_cast<int>(next() % 300'000);
        default:
            return static_cast<int>(next());
        }
    }
    int rate() {
        constexpr std::array usual{8000, 11025, 22050, 44100, 48000, 96000, 192000};
        return next() % 4 == 0 ? number() : usual[next() % usual.size()];
    }
    int channels() { return next() % 4 == 0 ? number() : 1 + below(8); }
    int bits() {
        constexpr std::array usual{8, 16, 24, 28, 32, 64};
        return next() % 6 == 0 ? number() : usual[next() % usual.size()];
    }

private:
    std::mt19937 random;
};

/// One random call. `Init` and `Quit` are rare. @return ms that it may take
int callAnything(TestHost& host, AnyArgument& any, std::vector<char>& data) {
    constexpr int bounded = 3000;
    Out_Module& out = host.out;
    switch (any.below(40)) {
    case 0:
        out.Open(any.rate(), any.channels(), any.bits(), any.number(), any.number());
        break;
    case 1:
        host.answerGoesOn = any.below(2) == 0;
        out.Close();
        break;
    case 2:
        out.Pause(any.below(3) == 0 ? any.number() : any.below(2));
        break;
    case 3:
        out.Flush(any.number());
        break;
    case 4:
        out.SetVolume(any.number());
        break;
    case 5:
        out.SetPan(any.number());
        break;
    case 6:
        EXPECT_EQ(out.IsPlaying(), 0);
        break;
    case 7:
        out.Config(nullptr);
        break;
    case 8:
        out.About(nullptr);
        break;
    case 9:
        host.sound.refusals = any.below(4);
        break;
    case 10:
        host.sound.lostLocks = any.below(4);
        break;
    case 11:
        host.sound.playFails = any.below(3) == 0;
        break;
    case 12:
        out.Write(nullptr, any.number());
        break;
    case 13:
        out.Write(data.data(), -any.below(10));
        break;
    case 14: {
        const int ms = any.below(8000);
        host.advance(ms);
        return ms + 1;
    }
    case 15:
        if (any.below(10) == 0) out.Init();
        break;
    case 16:
        if (any.below(10) == 0) out.Quit();
        return 6000;
    case 17:
        static_cast<void>(moduleStatus());
        break;
    case 18:
    case 19:
    case 20:
        host.advance(any.below(60));
        break;
    case 21:
    case 22:
        out.GetOutputTime();
        break;
    case 23:
        out.GetWrittenTime();
        break;
    default:
        if (out.CanWrite() > 0 || any.below(20) == 0)
            out.Write(data.data(),
                      any.below(8) == 0 ? any.below(static_cast<int>(data.size())) : 9216);
    }
    return bounded;
}

class RandomCalls : public testing::TestWithParam<std::uint32_t> {};

TEST_P(RandomCalls, NeverCrashNorHangNorLeaveALock) {
    const std::uint32_t seed = GetParam();
    TestHost::Setup setup;
    setup.beep = seed % 2 == 0;
    setup.fadeOnSeek = seed % 3 != 0;
    setup.fadeOnStop = seed % 4 != 0;
    setup.withSound = seed % 5 != 0;
    setup.kestrix = seed % 3 == 1;
    setup.settings.push_back({"Resample", "enable", seed % 4 == 2 ? 1u : 0u, {}});
    setup.seed = seed % 2 == 0 ? seed : 0;
    TestHost host{setup};
    AnyArgument any{seed};
    std::vector<char> data(65'536);
    for (char& x : data)
        x = static_cast<char>(any.next());
    for (int i = 0; i < 2000; ++i) {
        const std::int64_t before = host.clock.ticks();
        const int ms = callAnything(host, any, data);
        ASSERT_LE(host.clock.ticks() - before, ms * std::int64_t{10'000}) << "call " << i;
    }
    const std::int64_t before = host.clock.ticks();
    host.out.Quit();
    EXPECT_LE(host.clock.ticks() - before, 60'000'000);
    EXPECT_EQ(Thread::registeredThreads(), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomCalls, testing::Range(0u, 24u));

/// The same from the host's two threads at once; one of them never closes the module.
class RandomCallsAtOnce : public testing::TestWithParam<std::uint32_t> {};

TEST_P(RandomCallsAtOnce, NeverCrashNorHangNorLeaveALock) {
    const std::uint32_t seed = GetParam();
    TestHost::Setup setup;
    setup.beep = seed % 2 == 0;
    setup.kestrix = seed % 3 == 0;
    setup.settings.push_back({"Resample", "enable", seed % 2 == 0 ? 1u : 0u, {}});
    setup.seed = seed;
    setup.mode = seed % 2 == 0 ? TestClock::Mode::serial : TestClock::Mode::parallel;
    TestHost host{setup};
    {
        const Worker decoder{[&] {
            AnyArgument any{seed + 1000};
            const std::vector<char> data(65'536, 77);
            for (int i = 0; i < 1500; ++i) {
                if (host.out.CanWrite() > 0)
                    host.out.Write(const_cast<char*>(data.data()),
                                   any.below(6) == 0 ? any.below(65'536) : 9216);
                host.out.GetWrittenTime();
                if (any.below(3) == 0) kernel().sleep(any.below(40));
            }
        }};
        AnyArgument any{seed};
        for (int i = 0; i < 800; ++i) {
            const std::int64_t before = host.clock.ticks();
            switch (any.below(12)) {
            case 0:
                host.out.Open(any.rate(), any.channels(), any.bits(), 0, 0);
                break;
            case 1:
                host.out.Close();
                break;
            case 2:
                host.out.Pause(any.below(2));
                break;
            case 3:
                host.out.Flush(any.number());
                break;
            case 4:
                host.out.SetVolume(any.number());
                break;
            case 5:
                host.out.SetPan(any.number());
                break;
            case 6:
                host.out.Init();
                break;
            default:
                host.out.GetOutputTime();
            }
            // Nothing that a host calls waits for a queue to run out.
            ASSERT_LE(host.clock.ticks() - before, 30'000'000) << "call " << i;
            host.advance(any.below(60));
        }
    }
    const std::int64_t before = host.clock.ticks();
    host.out.Quit();
    EXPECT_LE(host.clock.ticks() - before, 60'000'000);
    EXPECT_EQ(Thread::registeredThreads(), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomCallsAtOnce, testing::Range(1u, 13u));

} // namespace
} // namespace velorine::test
