#include "tests/player/AudioFiles.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

using Frame = std::array<std::int16_t, 2>;
using Frames = std::vector<Frame>;

constexpr int windowFrames = 64; ///< of real music that occur nowhere else in it
constexpr int seeks = 50;
constexpr int fadeInMs = 160;
constexpr int fadeOutMs = 1500;
constexpr std::int64_t ticksPerMilli = 10'000;

/// Most that a sample of a fade is off the formula: its time is carried on by additions a little
/// below the frame's, which shows where the root is steep.
constexpr double fadeTolerance = 24.0;

struct Song {
    int rate = 0;
    Frames frames;

    /// Whether the music from `frame` on can be told from any other.
    bool soundsFrom(std::size_t frame) const {
        if (frame + windowFrames > frames.size()) return false;
        int peak = 0;
        for (std::size_t i = frame; i < frame + windowFrames; ++i)
            peak = std::max(peak, std::abs(int{frames[i][0]}));
        return peak > 500;
    }
};

Song songOf(const std::string& name) {
    const Decoded decoded = decode(VELORINE_MUSIC "/" + name, 60 * 48000);
    EXPECT_EQ(decoded.channels, 2);
    Song song;
    song.rate = decoded.rate;
    for (std::size_t i = 0; i + 1 < decoded.samples.size(); i += 2) {
        const auto sample = [&](std::size_t at) {
            return static_cast<std::int16_t>(
                std::lround(std::clamp(decoded.samples[at], -1.0, 1.0) * 32767));
        };
        song.frames.push_back({sample(i), sample(i + 1)});
    }
    return song;
}

/// An excerpt of the song that the host wrote, and when.
struct Excerpt {
    std::size_t songFrame = 0;
    std::int64_t frames = 0;
    std::int64_t seekTick = 0;  ///< the call that led to it
    std::int64_t writeTick = 0; ///< its first data
};

/// A listener who seeks at random in a real song.
class SongSeeks {
public:
    SongSeeks(const Song& played, std::uint32_t seed) : song(played), random(seed) {}

    void play(TestHost& host, int leastMs, int mostMs) {
        host.open(song.rate, 2, 16);
        begin(host);
        for (int i = 0; i < seeks; ++i) {
            write(host, leastMs + below(mostMs - leastMs));
            host.advance(below(40));
            begin(host);
            host.out.Flush(static_cast<int>(runs.back().songFrame * 1000 /
                                            static_cast<std::size_t>(song.rate)));
            host.advance(below(3) == 0 ? below(40) : 0);
        }
        write(host, 2500);
        host.close(true);
        host.advance(4000);
        host.out.Quit();
    }

    std::int64_t framesOf(std::int64_t ms) const { return ms * song.rate / 1000; }

    const Frame& frameOf(const Excerpt& run, std::int64_t index) const {
        return song.frames[run.songFrame + static_cast<std::size_t>(index)];
    }

    const Song& song;
    std::vector<Excerpt> runs;

private:
    int below(int limit) { return static_cast<int>(random() % static_cast<std::uint32_t>(limit)); }

    /// At a whole millisecond where both the first frame and the one behind the fade-in are loud.
    void begin(TestHost& host) {
        const auto lastMs =
            static_cast<int>(song.frames.size() * 1000 / static_cast<std::size_t>(song.rate)) -
            4000;
        for (;;) {
            const auto at = static_cast<std::size_t>(framesOf(below(lastMs)));
            const auto behind = at + static_cast<std::size_t>(framesOf(fadeInMs));
            if (std::abs(int{song.frames[at][0]}) < 2000 || !song.soundsFrom(behind)) continue;
            runs.push_back({at, 0, host.clock.ticks(), 0});
            return;
        }
    }

    void write(TestHost& host, int ms) {
        Excerpt& run = runs.back();
        run.writeTick = host.clock.ticks();
        run.frames = framesOf(ms);
        const auto first = song.frames.begin() + static_cast<std::ptrdiff_t>(run.songFrame);
        host.write(Frames{first, first + run.frames});
    }

    std::mt19937 random;
};

/// The fade from one run to the next as it should sound, in 16-bit steps.
class FadeModel {
public:
    FadeModel(const SongSeeks& what, const Excerpt& oldRun, const Excerpt& newRun)
        : seeks(what), before(oldRun), after(newRun) {}

    /// @param oldIndex   frame of the old run where its fade-out begins
    /// @param untilFadeIn  frames from there to the fade-in
    double at(std::int64_t i, std::int64_t oldIndex, std::int64_t untilFadeIn,
              std::size_t channel) const {
        const std::int64_t left = before.frames - oldIndex;
        const double fadeOut = static_cast<double>(std::min(seeks.framesOf(fadeOutMs), left));
        double y = 0;
        if (static_cast<double>(i) < fadeOut)
            y = seeks.frameOf(before, oldIndex + i)[channel] *
                std::sqrt(1.0 - (static_cast<double>(i) + 0.5) / fadeOut);
        if (i < untilFadeIn) return y;
        const std::int64_t k = i - untilFadeIn;
        const double t =
            (static_cast<double>(k) + 0.5) / static_cast<double>(seeks.framesOf(fadeInMs));
        y = y * std::sqrt(1.0 - t) + seeks.frameOf(after, k)[channel] * std::sqrt(t);
        return std::clamp(y, -32768.0, 32767.0);
    }

private:
    const SongSeeks& seeks;
    const Excerpt& before;
    const Excerpt& after;
};

/// Follows what was heard from run to run of the song; what is wrong is a failure of the test.
class Follower {
public:
    Follower(const SongSeeks& what, Frames frames) : seeks(what), heard(std::move(frames)) {}

    /// Heard frames that are those of `run` from its frame `index` on.
    std::int64_t equalFrames(std::size_t at, const Excerpt& run, std::int64_t index) const {
        std::int64_t count = 0;
        while (index + count < run.frames && at + static_cast<std::size_t>(count) < heard.size() &&
               heard[at + static_cast<std::size_t>(count)] == seeks.frameOf(run, index + count))
            ++count;
        return count;
    }

    /// First place from `from` on where a run of those behind `run` is heard behind its fade-in.
    /// @return the run, its last one if there is none; `place` is the place
    std::size_t nextJoin(std::size_t from, std::size_t run, std::size_t& place) const {
        const std::int64_t fade = seeks.framesOf(fadeInMs);
        for (place = from; place + windowFrames < heard.size(); ++place)
            for (std::size_t next = run + 1; next < seeks.runs.size(); ++next)
                if (heard[place] == seeks.frameOf(seeks.runs[next], fade) &&
                    equalFrames(place, seeks.runs[next], fade) >= windowFrames)
                    return next;
        return seeks.runs.size();
    }

    /// Largest distance of a sample from a fade that begins at heard frame `at` or a little before:
    /// the first frames of a fade round to what they were.
    ///
    /// @param index     frame of the old run at `at`
    /// @param fadeInAt  frames from `at` to the fade-in
    double apartFrom(const FadeModel& model, std::size_t at, std::int64_t index,
                     std::int64_t fadeInAt) const {
        const std::int64_t end = fadeInAt + seeks.framesOf(fadeInMs);
        double least = 1e9;
        for (std::int64_t back = 0; back < 300 && least > fadeTolerance; ++back) {
            double worst = 0;
            for (std::int64_t i = 0; i < end + back && worst < least; ++i)
                for (const std::size_t channel : {0u, 1u}) {
                    const double y = model.at(i, index - back, fadeInAt + back, channel);
                    const Frame& frame = heard[at + static_cast<std::size_t>(i - back)];
                    worst = std::max(worst, std::abs(y - frame[channel]));
                }
            least = std::min(least, worst);
        }
        return least;
    }

    const SongSeeks& seeks;
    const Frames heard;
};

TestHost::Setup sixteenBits() {
    TestHost::Setup setup;
    setup.settings = {{"Output", "bits", 1, {}}};
    return setup;
}

struct Heard {
    Frames frames;
    std::vector<std::int64_t> ticks; ///< when each was heard
};

Heard heardBy(TestHost& host) {
    Heard heard;
    for (const TestSound::Passage& passage : host.sound.passages()) {
        EXPECT_EQ(passage.format.blockAlign(), int{sizeof(Frame)});
        const std::size_t first = heard.frames.size();
        heard.frames.resize(first + static_cast<std::size_t>(passage.count()));
        std::memcpy(heard.frames.data() + first, passage.frames.data(), passage.frames.size());
        for (int i = 0; i < passage.count(); ++i)
            heard.ticks.push_back(passage.startTick +
                                  (std::int64_t{i} + 1) * 10'000'000 / passage.format.rate);
    }
    return heard;
}

class RealSong : public testing::TestWithParam<const char*> {
protected:
    const Song song = songOf(GetParam());
};

TEST_P(RealSong, FiftySeeksAreHeardInOrderWithNothingLostAndNothingTwice) {
    for (const auto& [leastMs, mostMs] : {std::pair{1600, 2600}, std::pair{20, 2000}}) {
        SongSeeks listener{song, 17};
        TestHost host{sixteenBits()};
        listener.play(host, leastMs, mostMs);
        Heard heard = heardBy(host);
        const std::vector<std::int64_t>& ticks = heard.ticks;
        const Follower follower{listener, std::move(heard.frames)};

        std::size_t run = 0;    // that is heard
        std::size_t at = 0;     // heard frame
        std::int64_t index = 0; // frame of the run that is heard there
        int faded = 0;          // transitions that were compared frame by frame
        while (true) {
            const Excerpt& old = listener.runs[run];
            const std::int64_t plain = follower.equalFrames(at, old, index);
            at += static_cast<std::size_t>(plain);
            index += plain;
            if (run + 1 == listener.runs.size()) {
                EXPECT_EQ(index, old.frames) << "the last run is heard to its end";
                break;
            }
            // Of a run that a seek left, only what plays within the seek's margin is heard plain.
            const Excerpt& first = listener.runs[run + 1];
            EXPECT_LE(ticks[at] - first.seekTick, 110 * ticksPerMilli) << "run " << run;

            std::size_t join = 0;
            const std::size_t next = follower.nextJoin(at, run, join);
            ASSERT_LT(next, listener.runs.size()) << "nothing follows run " << run;
            const Excerpt& found = listener.runs[next];
            const std::int64_t fadeIn = listener.framesOf(fadeInMs);
            ASSERT_GE(join, at + 1);
            EXPECT_LE(ticks[join] - found.writeTick, (120 + fadeInMs + 30) * ticksPerMilli);

            if (next == run + 1) {
                ++faded;
                const std::int64_t fadeInAt =
                    static_cast<std::int64_t>(join) - fadeIn - static_cast<std::int64_t>(at);
                const double apart =
                    follower.apartFrom(FadeModel{listener, old, found}, at, index, fadeInAt);
                EXPECT_LE(apart, fadeTolerance) << "from run " << run << " to " << next;
            }
            run = next;
            at = join;
            index = fadeIn;
        }
        EXPECT_GE(faded, leastMs > 1000 ? seeks : seeks / 4);
    }
}

TEST_P(RealSong, FiftySeeksAreRecordedInOrderWithNothingLostAndNothingTwice) {
    const Scratch scratch;
    const std::string path = scratch.path("song.wav");
    TestHost::Setup setup = sixteenBits();
    setup.options.recordMode = 1;
    setup.options.recordPath = path;
    SongSeeks listener{song, 18};
    {
        TestHost host{setup};
        listener.play(host, 20, 2600);
    }
    const std::vector<std::byte> file = bytesOf(path);
    ASSERT_GT(file.size(), 44u);
    Frames frames((file.size() - 44) / sizeof(Frame));
    std::memcpy(frames.data(), file.data() + 44, frames.size() * sizeof(Frame));
    const Follower follower{listener, std::move(frames)};
    const Frames& recorded = follower.heard;

    std::size_t at = 0;
    for (std::size_t i = 0; i < listener.runs.size(); ++i) {
        const Excerpt& run = listener.runs[i];
        std::int64_t index = 0;
        if (i > 0) {
            while (at < recorded.size() && recorded[at] == Frame{})
                ++at;
            const std::int64_t fade = listener.framesOf(fadeInMs);
            const std::size_t join = at;
            const std::int64_t shared = std::min(fade, run.frames);
            for (; index < shared && at < recorded.size(); ++index, ++at) {
                const double t = (static_cast<double>(index) + 0.5) / static_cast<double>(fade);
                for (const std::size_t channel : {0u, 1u})
                    ASSERT_NEAR(recorded[at][channel],
                                listener.frameOf(run, index)[channel] * std::sqrt(t), fadeTolerance)
                        << "run " << i << " frame " << index << " from " << join;
            }
        }
        const std::int64_t plain = follower.equalFrames(at, run, index);
        ASSERT_EQ(index + plain, run.frames) << "run " << i;
        at += static_cast<std::size_t>(plain);
    }
    EXPECT_TRUE(std::all_of(recorded.begin() + static_cast<std::ptrdiff_t>(at), recorded.end(),
                            [](const Frame& frame) { return frame == Frame{}; }));
}

INSTANTIATE_TEST_SUITE_P(Songs, RealSong, testing::Values("brandenburg.ogg", "march.ogg"),
                         [](const auto& song) {
                             const std::string name = song.param;
                             return name.substr(0, name.find('.'));
                         });

} // namespace
} // namespace velorine::test
