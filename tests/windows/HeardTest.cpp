#include "tests/windows/PluginHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>

namespace velorine::test {
namespace {

constexpr std::size_t framesPerMs = 44; ///< and a little more
constexpr std::size_t probe = 32;       ///< frames that tell where a stretch of noise stands

/// Wine's stream swallows what is played in the first moments after it was made.
constexpr std::size_t startUp = 40 * framesPerMs;

/// A stretch of the recording that is a stretch of what was written.
struct Match {
    std::size_t heardAt = 0;
    std::size_t writtenAt = 0;
    std::size_t count = 0;

    std::size_t heardEnd() const { return heardAt + count; }
    std::size_t writtenEnd() const { return writtenAt + count; }
};

/// The longest stretch of `written` around its frame `at` that was heard behind `from`.
std::optional<Match> match(const Capture& capture, const std::vector<Frame>& written,
                           std::size_t at, std::size_t from = 0) {
    const auto found = capture.find(part(written, at, probe), from);
    if (!found) return std::nullopt;
    Match run{*found, at, probe};
    while (run.heardAt > from && run.writtenAt > 0 &&
           close(capture.frames[run.heardAt - 1], written[run.writtenAt - 1])) {
        --run.heardAt;
        --run.writtenAt;
        ++run.count;
    }
    while (run.heardEnd() < capture.frames.size() && run.writtenEnd() < written.size() &&
           close(capture.frames[run.heardEnd()], written[run.writtenEnd()]))
        ++run.count;
    return run;
}

bool isSilent(const Capture& capture, std::size_t begin, std::size_t end) {
    return std::all_of(capture.frames.begin() + static_cast<std::ptrdiff_t>(begin),
                       capture.frames.begin() + static_cast<std::ptrdiff_t>(end),
                       [](Frame frame) { return frame == 0; });
}

/// Lets the host play out, as one does at the end of its list.
void playOut(PluginHost& host, Capture& capture) {
    EXPECT_TRUE(capture.waitUntil(
        [&] { return host.out().GetOutputTime() >= host.out().GetWrittenTime(); }));
    EXPECT_TRUE(capture.waitForSilence(300));
}

/// Ms of what lies between two places, for the test's report.
void report(const char* what, std::size_t begin, std::size_t end) {
    const std::size_t frames = std::max(begin, end) - begin;
    testing::Test::RecordProperty(what, static_cast<int>(frames / framesPerMs));
    std::printf("%s: %.1f ms\n", what, static_cast<double>(frames) * 1000.0 / Capture::rate);
}

/// What was wrong with a take.
class Faults {
public:
    /// @return whether `right`
    template <typename Shown>
    bool expect(bool right, const char* what, Shown shown) {
        if (!right) text << what << " (" << shown << "); ";
        return right;
    }

    std::string all() const { return text.str(); }

private:
    std::ostringstream text;
};

/// Plays `take` until one of five is without fault: on a busy machine Wine's stream runs dry now
/// and then, which leaves a hole in the recording. So a fault of ours is found if it comes in all.
template <typename Take>
void undisturbed(Take take) {
    std::string faults;
    for (int i = 0; i < 5; ++i) {
        faults = take().all();
        if (faults.empty()) return;
        std::printf("take %d: %s\n", i + 1, faults.c_str());
    }
    ADD_FAILURE() << faults;
}

TEST(Heard, IsWhatWasWritten) {
    undisturbed([] {
        const std::vector<Frame> music = noise(3 * Capture::rate, 1);
        Faults faults;
        Capture capture;
        PluginHost host;
        host.open();
        host.write(music);
        playOut(host, capture);
        const auto heard = match(capture, music, music.size() / 2);
        if (!faults.expect(heard.has_value(), "nothing is heard", 0)) return faults;
        faults.expect(heard->writtenAt <= startUp, "begins late", heard->writtenAt);
        faults.expect(heard->writtenEnd() == music.size(), "ends early", heard->writtenEnd());
        faults.expect(isSilent(capture, 0, heard->heardAt), "noise before", 0);
        faults.expect(isSilent(capture, heard->heardEnd(), capture.frames.size()), "or behind", 0);
        report("start swallowed", 0, heard->writtenAt);
        return faults;
    });
}

TEST(Heard, LeadingSilenceOfATrackIsLeftOut) {
    undisturbed([] {
        std::vector<Frame> track(4000);
        const std::vector<Frame> music = noise(Capture::rate, 2);
        track.insert(track.end(), music.begin(), music.end());
        Faults faults;
        Capture capture;
        PluginHost host;
        host.open();
        host.write(music);
        host.close(true);
        host.open();
        host.write(track);
        playOut(host, capture);
        const auto first = match(capture, music, startUp);
        if (!faults.expect(first.has_value(), "nothing is heard", 0)) return faults;
        const auto second = match(capture, music, 0, first->heardEnd());
        if (!faults.expect(second.has_value(), "no second track", 0)) return faults;
        faults.expect(second->heardAt == first->heardEnd(), "a gap",
                      second->heardAt - first->heardEnd());
        faults.expect(second->count == music.size(), "a part of it", second->count);
        return faults;
    });
}

TEST(Heard, ThreeTracksOfOneFormatFollowWithoutAGap) {
    undisturbed([] {
        std::vector<Frame> song;
        Faults faults;
        Capture capture;
        PluginHost host;
        for (std::uint32_t track = 0; track < 3; ++track) {
            const std::vector<Frame> music = noise(3 * Capture::rate / 2, 3 + track);
            song.insert(song.end(), music.begin(), music.end());
            host.open();
            host.write(music);
            if (track < 2) host.close(true);
        }
        playOut(host, capture);
        const auto heard = match(capture, song, song.size() / 2);
        if (!faults.expect(heard.has_value(), "nothing is heard", 0)) return faults;
        faults.expect(heard->writtenAt <= startUp, "begins late", heard->writtenAt);
        faults.expect(heard->writtenEnd() == song.size(), "ends early", heard->writtenEnd());
        for (const std::intptr_t question : {104, 400})
            faults.expect(std::ranges::count(host.questions(), question) == 1, "isn't asked",
                          question);
        return faults;
    });
}

TEST(Heard, ASeekWithoutAFadeBeginsTheNewAudioAtTheCut) {
    undisturbed([] {
        const std::vector<Frame> before = noise(3 * Capture::rate, 6);
        const std::vector<Frame> after = noise(Capture::rate, 7);
        Faults faults;
        Capture capture;
        PluginHost host{{{"General", "Fade on seek", 0}}};
        host.open();
        host.write(before);
        capture.update();
        const std::size_t call = capture.frames.size();
        host.out().Flush(60'000);
        host.write(after);
        playOut(host, capture);
        const auto old = match(capture, before, Capture::rate);
        if (!faults.expect(old.has_value(), "nothing is heard", 0)) return faults;
        faults.expect(old->writtenAt <= startUp, "begins late", old->writtenAt);
        const auto fresh = match(capture, after, after.size() / 2, old->heardEnd());
        if (!faults.expect(fresh.has_value(), "nothing new is heard", 0)) return faults;
        // The new audio fades in from the cut on; what came too late for it is missing there.
        const std::size_t fadeIn = fresh->heardAt - old->heardEnd();
        const std::size_t late = fresh->writtenAt - std::min(fresh->writtenAt, fadeIn);
        faults.expect(fadeIn <= fresh->writtenAt + 1, "a gap", fadeIn - fresh->writtenAt);
        faults.expect(fadeIn <= 161 * framesPerMs, "a long fade", fadeIn);
        faults.expect(late <= 100 * framesPerMs, "much of it is missing", late);
        faults.expect(fresh->writtenEnd() == after.size(), "ends early", fresh->writtenEnd());
        report("new audio that came too late for what was on its way", 0, late);
        report("response of a seek", call, old->heardEnd());
        return faults;
    });
}

TEST(Heard, APauseEndsWhereItBegan) {
    undisturbed([] {
        const std::vector<Frame> music = noise(4 * Capture::rate, 8);
        Faults faults;
        Capture capture;
        PluginHost host;
        host.open();
        host.write(part(music, 0, 2 * Capture::rate));
        capture.update();
        const std::size_t call = capture.frames.size();
        host.out().Pause(1);
        faults.expect(capture.waitForSilence(300), "it goes on", 0);
        host.out().Pause(0);
        host.write(part(music, 2 * Capture::rate, music.size()));
        playOut(host, capture);
        const auto first = match(capture, music, Capture::rate / 4);
        if (!faults.expect(first.has_value(), "nothing is heard", 0)) return faults;
        faults.expect(first->writtenAt <= startUp, "begins late", first->writtenAt);
        const auto second = match(capture, music, 3 * Capture::rate, first->heardEnd());
        if (!faults.expect(second.has_value(), "nothing after it is heard", 0)) return faults;
        faults.expect(isSilent(capture, first->heardEnd(), second->heardAt), "noise in it", 0);
        faults.expect(second->heardAt - first->heardEnd() >= 250 * framesPerMs, "it is short",
                      second->heardAt - first->heardEnd());
        faults.expect(second->writtenAt <= first->writtenEnd(), "something is lost",
                      second->writtenAt - first->writtenEnd());
        faults.expect(first->writtenEnd() <= second->writtenAt + 100 * framesPerMs,
                      "too much is heard again", first->writtenEnd() - second->writtenAt);
        faults.expect(second->writtenEnd() == music.size(), "ends early", second->writtenEnd());
        report("audio heard again after a pause", second->writtenAt, first->writtenEnd());
        report("response of a pause", call, first->heardEnd());
        return faults;
    });
}

TEST(Heard, AStopFadesForASecondAndEndsInSilence) {
    undisturbed([] {
        constexpr int height = 0x2000; // a level that a fade shows in
        const std::vector<Frame> music(4 * Capture::rate, height << 16 | height);
        Faults faults;
        Capture capture;
        PluginHost host;
        host.open();
        host.write(music);
        host.close(false);
        faults.expect(capture.waitForSilence(500), "it goes on", 0);
        const auto& frames = capture.frames;
        const auto level = [](Frame frame) { return static_cast<std::int16_t>(frame); };
        const auto begin = std::ranges::find_if(frames, [&](Frame f) { return level(f) != 0; });
        const auto fade =
            std::find_if(begin, frames.end(), [&](Frame f) { return level(f) <= height - 8; });
        const auto end = std::find_if(fade, frames.end(), [&](Frame f) { return level(f) <= 8; });
        const double seconds = static_cast<double>(end - fade) / Capture::rate;
        faults.expect(std::abs(seconds - 1.0) <= 0.1, "not a second", seconds);
        const auto rise = std::adjacent_find(
            fade, end, [&](Frame a, Frame b) { return level(b) > level(a) + 2; });
        faults.expect(rise == end, "it rises", rise - fade);
        const auto behind = std::min<std::ptrdiff_t>(100, frames.end() - end);
        faults.expect(std::all_of(end + behind, frames.end(), [](Frame f) { return f == 0; }),
                      "noise behind it", 0);
        return faults;
    });
}

TEST(Heard, AHostThatStallsLeavesSilenceAndLosesNothing) {
    for (const int silentMs : {200, 1000, 5000})
        undisturbed([silentMs] {
            const std::vector<Frame> music = noise(3 * Capture::rate, 9);
            const std::size_t written = Capture::rate; // when it stalls
            Faults faults;
            Capture capture;
            PluginHost host;
            host.open();
            host.write(part(music, 0, written));
            faults.expect(capture.waitForSilence(silentMs), "stale audio", 0);
            host.write(part(music, written, music.size()));
            playOut(host, capture);
            const auto first = match(capture, music, written / 2);
            if (!faults.expect(first.has_value(), "nothing is heard", 0)) return faults;
            faults.expect(first->writtenEnd() == written, "ends elsewhere", first->writtenEnd());
            const auto second = match(capture, music, 2 * Capture::rate, first->heardEnd());
            if (!faults.expect(second.has_value(), "nothing after it is heard", 0)) return faults;
            faults.expect(second->writtenAt == written, "goes on elsewhere", second->writtenAt);
            faults.expect(second->writtenEnd() == music.size(), "ends early", second->writtenEnd());
            faults.expect(isSilent(capture, first->heardEnd(), second->heardAt), "noise in it", 0);
            return faults;
        });
}

TEST(Heard, EachOfSeveralLivesPlays) {
    for (std::uint32_t life = 0; life < 3; ++life)
        undisturbed([life] {
            const std::vector<Frame> music = noise(Capture::rate, 20 + life);
            Faults faults;
            Capture capture;
            PluginHost host;
            host.open();
            host.write(music);
            playOut(host, capture);
            const auto heard = match(capture, music, music.size() / 2);
            if (!faults.expect(heard.has_value(), "nothing is heard", life)) return faults;
            faults.expect(heard->writtenAt <= startUp, "begins late", heard->writtenAt);
            faults.expect(heard->writtenEnd() == music.size(), "ends early", heard->writtenEnd());
            return faults;
        });
}

} // namespace
} // namespace velorine::test
