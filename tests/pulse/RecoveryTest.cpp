#include "tests/pulse/Await.h"
#include "tests/pulse/Listening.h"

#include <gtest/gtest.h>

#include <memory>

namespace velorine::test {
namespace {

/// Frames by which the position may be ahead: a stall is taken for a faster card at first.
constexpr int positionStep = 960;

bool silent() {
    return moduleStatus().nullTarget;
}
bool audible() {
    return !silent();
}

/// Frame of the one track that is heard now.
int frameNow(const LiveHost& host) {
    return host.out.GetOutputTime() * 48;
}

/// Plays on into the silence, for longer than the server holds anything.
void playIntoSilence(LiveHost& host) {
    ASSERT_TRUE(host.writeUntil(silent));
    const int before = frameNow(host);
    ASSERT_TRUE(host.writeUntil([&] { return frameNow(host) > before + 24000; }))
        << "time stands while nothing is heard";
}

/// Plays on until something is heard again, and to the end.
void playToTheEnd(LiveHost& host) {
    ASSERT_TRUE(host.writeUntil(audible));
    host.writeMs(500);
    EXPECT_TRUE(host.reachesEnd());
    host.quit();
}

/// What was heard from `from` on, in order and to the end of the programme.
void expectRest(const std::vector<Stretch>& list, const LiveHost& host, int from) {
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(continuityFault(list, 0), "") << described(list);
    EXPECT_GE(list.front().first, from) << "old audio\n" << described(list);
    EXPECT_EQ(list.back().end(), host.segments[0].frames) << described(list);
}

TEST(PulseRecovery, AServerThatComesLateIsPlayedOn) {
    SoundDaemon daemon;
    daemon.kill();
    LiveHost host{{}};
    host.begin();
    playIntoSilence(host);
    daemon.start();
    const SoundDaemon::Sink sink{"First"};
    const int from = frameNow(host);
    daemon.addSink(sink);
    const Recorder recorder{sink};
    playToTheEnd(host);
    expectRest(soundIn(recorder, host), host, from - positionStep);
}

TEST(PulseRecovery, AServerThatIsKilledAndRestartedGoesOnWhereTheStreamIs) {
    SoundDaemon daemon;
    const SoundDaemon::Sink sink{"First"};
    daemon.addSink(sink);
    auto before = std::make_unique<Recorder>(sink);
    LiveHost host{{}};
    host.begin();
    host.writeMs(1200);
    daemon.kill();
    const auto first = soundIn(*before, host);
    before.reset();
    playIntoSilence(host);
    EXPECT_TRUE(moduleStatus().fallback);
    daemon.start();
    const int from = frameNow(host);
    daemon.addSink(sink);
    const Recorder after{sink};
    playToTheEnd(host);
    EXPECT_EQ(continuityFault(first, 0), "") << described(first);
    expectRest(soundIn(after, host), host, from - positionStep);
}

TEST(PulseRecovery, ASinkThatWasChosenIsWaitedForAndNoOtherPlays) {
    SoundDaemon daemon;
    const SoundDaemon::Sink other{"First"};
    const SoundDaemon::Sink chosen{"Second"};
    daemon.addSink(other);
    const std::string module = daemon.addSink(chosen);
    daemon.makeDefault(other.name);
    const Recorder elsewhere{other};
    auto before = std::make_unique<Recorder>(chosen);
    LiveHost host{{chosen.name}};
    host.begin();
    host.writeMs(1200);
    EXPECT_EQ(moduleStatus().device, chosen.name);
    daemon.removeSink(module);
    const auto first = soundIn(*before, host);
    before.reset();
    playIntoSilence(host);
    const int from = frameNow(host);
    daemon.addSink(chosen);
    const Recorder after{chosen};
    playToTheEnd(host);
    EXPECT_EQ(continuityFault(first, 0), "") << described(first);
    EXPECT_FALSE(first.empty());
    expectRest(soundIn(after, host), host, from - positionStep);
    EXPECT_TRUE(soundIn(elsewhere, host).empty()) << described(soundIn(elsewhere, host));
}

TEST(PulseRecovery, TheDefaultSinkIsFollowed) {
    SoundDaemon daemon;
    const SoundDaemon::Sink first{"First"};
    const SoundDaemon::Sink second{"Second"};
    daemon.addSink(first);
    daemon.addSink(second);
    daemon.makeDefault(first.name);
    daemon.control({"set-default-source", first.name + ".monitor"}); // recordings stay
    const Recorder onFirst{first};
    const Recorder onSecond{second};
    LiveHost host{{}};
    host.begin();
    host.writeMs(1200);
    daemon.makeDefault(second.name);
    host.writeMs(700);
    EXPECT_TRUE(host.reachesEnd());
    host.quit();
    const auto left = soundIn(onFirst, host);
    const auto right = soundIn(onSecond, host);
    EXPECT_EQ(continuityFault(left, 0), "") << described(left);
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.front().first, 0);
    expectRest(right, host, left.back().end());
    EXPECT_LE(right.front().first, left.back().end() + 4800) << described(right);
}

TEST(PulseRecovery, ASuspendedSinkLosesWhatItWouldHavePlayed) {
    Listening room;
    room.host.begin();
    room.host.writeMs(1200);
    room.daemon.suspend(room.sink.name, true);
    playIntoSilence(room.host);
    const int from = frameNow(room.host);
    room.daemon.suspend(room.sink.name, false);
    playToTheEnd(room.host);
    const auto list = room.sound();
    // Its recording stands meanwhile: the jump in the programme is where it was suspended.
    std::size_t jump = 1;
    while (jump < list.size() && list[jump].first < from - positionStep)
        ++jump;
    ASSERT_LT(jump, list.size()) << described(list);
    const auto middle = list.begin() + static_cast<std::ptrdiff_t>(jump);
    std::vector<Stretch> first{list.begin(), middle};
    if (first.back().kind == Stretch::Kind::silence) first.pop_back();
    EXPECT_EQ(continuityFault(first, 0), "") << described(list);
    expectRest({middle, list.end()}, room.host, from - positionStep);
}

TEST(PulseRecovery, AServerThatHangsIsLeftAlone) {
    Listening room;
    room.host.begin();
    room.host.writeMs(1200);
    room.daemon.freeze();
    playIntoSilence(room.host);
    const int from = frameNow(room.host);
    room.daemon.thaw();
    playToTheEnd(room.host);
    const auto list = room.sound();
    EXPECT_EQ(list.back().end(), room.host.segments[0].frames) << described(list);
    EXPECT_EQ(orderFault(list).find("again"), std::string::npos) << described(list);
    for (const Stretch& stretch : list)
        EXPECT_TRUE(stretch.kind == Stretch::Kind::silence || stretch.end() < from - positionStep ||
                    stretch.first >= from - positionStep)
            << "thawed at " << from << "\n"
            << described(list);
}

} // namespace
} // namespace velorine::test
