#include "tests/output/RecorderFixture.h"

#include <random>

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::pattern;

class RecorderWindow : public test::RecorderFixture {
protected:
    static constexpr std::size_t frameBytes = 4;

    /// Frames `first` up to `last` of the stream.
    static Bytes frames(std::int64_t first, std::int64_t last) {
        return pattern(static_cast<std::size_t>(last - first) * frameBytes,
                       static_cast<std::size_t>(first) * frameBytes);
    }
};

TEST_F(RecorderWindow, HoldsExactlyItsFramesWhateverTheBlocks) {
    std::mt19937 random{1};
    const std::int64_t total = 6000;
    const RecordingWindow windows[] = {{0, -1},     {0, 1000},     {1000, -1},  {1000, 2000},
                                       {1, 1},      {5999, 1},     {5999, 100}, {0, 6000},
                                       {500, 5500}, {2500, 50000}, {0, 1}};
    for (const RecordingWindow& window : windows) {
        for (int split = 0; split < 8; ++split) {
            const std::string name = std::to_string(split);
            recorder.setPath(name, true, window);
            const std::int64_t longest = split == 0 ? total : split == 1 ? 1 : 1700;
            for (std::int64_t at = 0; at < total;) {
                const auto wish = static_cast<std::int64_t>(random() % 2000) % longest + 1;
                const std::int64_t next = std::min(split == 0 ? total : at + wish, total);
                write(frames(at, next));
                if (random() % 5 == 0) recorder.close();
                at = next;
            }
            recorder.close();
            const std::int64_t last = window.frameCount < 0
                                          ? total
                                          : std::min(total, window.skipFrames + window.frameCount);
            EXPECT_EQ(dataOf(files[name]), frames(window.skipFrames, last))
                << window.skipFrames << '+' << window.frameCount << ", split " << split;
            EXPECT_EQ(fault(name), "");
        }
    }
    EXPECT_FALSE(recorder.failed());
}

TEST_F(RecorderWindow, TouchesNoFileOutsideOfIt) {
    recorder.setPath("b.wav", true, {100, 50});
    write(frames(0, 60));
    write(frames(60, 100));
    EXPECT_EQ(files.calls, 0);

    write(frames(100, 150));
    recorder.close();
    const int calls = files.calls;
    streamIs({sampleType::float32, 6, 96000});
    write(frames(150, 1000));
    EXPECT_EQ(files.calls, calls);
    streamIs({sampleType::int16, 2, 44100});
    EXPECT_EQ(dataOf(files["b.wav"]), frames(100, 150));
    EXPECT_EQ(fault("b.wav"), "");
}

TEST_F(RecorderWindow, CountsFromThePathOn) {
    recorder.setPath("b.wav", true, {100, 50});
    write(frames(0, 200));
    recorder.setPath("c.wav", true, {10, 20});
    write(frames(200, 300));
    recorder.setPath("d.wav", true);
    write(frames(300, 400));
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), frames(100, 150));
    EXPECT_EQ(dataOf(files["c.wav"]), frames(210, 230));
    EXPECT_EQ(dataOf(files["d.wav"]), frames(300, 400));
}

TEST_F(RecorderWindow, SurvivesRewinds) {
    std::mt19937 random{2};
    for (int round = 0; round < 30; ++round) {
        const auto skip = static_cast<std::int64_t>(random() % 3000);
        const auto count = static_cast<std::int64_t>(random() % 3000);
        recorder.setPath("b.wav", true, {skip, count});
        std::int64_t at = 0;
        while (at < 7000) {
            const auto length = static_cast<std::int64_t>(random() % 600 + 1);
            write(frames(at, at + length));
            at += length;
            if (random() % 4 == 0) recorder.close();
            if (random() % 3 == 0) {
                const auto back = std::min(at, static_cast<std::int64_t>(random() % 1000));
                recorder.rewind(back);
                at -= back;
            }
        }
        recorder.close();
        ASSERT_EQ(dataOf(files["b.wav"]), frames(skip, skip + count)) << round;
        EXPECT_EQ(fault("b.wav"), count > 0 ? "" : "no header");
    }
}

} // namespace
} // namespace velorine
