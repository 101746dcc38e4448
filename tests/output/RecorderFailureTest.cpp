#include "tests/output/RecorderFixture.h"

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::joined;
using test::pattern;

class RecorderFailure : public test::RecorderFixture {};

TEST_F(RecorderFailure, ARefusedFileIsSkippedAndTriedAgain) {
    files.refuseFrom = 1;
    files.refuseCount = 4; // two attempts to open, two to create
    write(pattern(400));
    write(pattern(400, 400));
    EXPECT_FALSE(recorder.isOpen());
    EXPECT_TRUE(recorder.failed());

    write(pattern(400, 800));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(400, 800));
    EXPECT_TRUE(recorder.failed()) << "frames are missing";

    recorder.setPath("b.wav", false);
    EXPECT_FALSE(recorder.failed());
}

TEST_F(RecorderFailure, ARefusedReplacementUsesUpTheOrderToOverwrite) {
    files["b.wav"] = test::plainWav(1, 2, 44100, 16, pattern(4000));
    recorder.setPath("b.wav", true);
    files.refuseFrom = files.calls + 1;
    write(pattern(400));
    EXPECT_TRUE(recorder.failed());
    write(pattern(400, 4000));
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(4400));
}

TEST_F(RecorderFailure, AFullDiskLeavesAShortFileWithACorrectHeader) {
    files.room = 44 + 602;
    write(pattern(400));
    EXPECT_FALSE(recorder.failed());
    write(pattern(400, 400));
    EXPECT_TRUE(recorder.failed());
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(602));
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(RecorderFailure, FramesStayWholeBehindADiskThatWasFull) {
    files.room = 44 + 602;
    write(pattern(400));
    write(pattern(400, 400)); // cut inside its frame 50
    files.room = 100000;
    write(pattern(400, 800));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), joined({pattern(600), pattern(400, 800)}));
}

TEST_F(RecorderFailure, LostFramesAreNotTakenBack) {
    files.room = 44 + 400;
    write(pattern(400));
    write(pattern(400, 400));
    recorder.rewind(100);
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(400));
}

TEST_F(RecorderFailure, AFailingCloseIsTold) {
    write(pattern(400));
    files.refuseFrom = files.calls + 3; // behind the header's size and its writing
    recorder.close();
    EXPECT_TRUE(recorder.failed());
    EXPECT_EQ(files.openFiles, 0);
}

/// Every single call that may be refused, in a life with all there is: recording, a pause, a
/// rewind, a change of format, a file of an earlier run.
TEST_F(RecorderFailure, AnySingleRefusalLeavesAUsableFile) {
    const auto life = [this] {
        recorder.setPath("a.wav", true);
        streamIs({sampleType::int16, 2, 44100});
        write(pattern(400));
        recorder.close();
        write(pattern(400, 400));
        recorder.rewind(10);
        write(pattern(40, 760));
        recorder.close();
        recorder.rewind(10);
        write(pattern(40, 760));
        streamIs({sampleType::float32, 2, 44100});
        write(pattern(800));
        recorder.setPath("b.wav", false);
        write(pattern(800, 800));
        recorder.close();
    };
    const Bytes older = test::extensibleWav(3, 2, 44100, 32, pattern(800));

    files["b.wav"] = older;
    const int before = files.calls;
    life();
    const int calls = files.calls - before;
    ASSERT_FALSE(recorder.failed());
    const Bytes a = files["a.wav"], b = files["b.wav"];
    ASSERT_EQ(dataOf(a), pattern(800));
    ASSERT_EQ(dataOf(b), joined({Bytes(older.begin() + 44, older.end()), pattern(800, 800)}));

    for (int refused = 1; refused <= calls; ++refused) {
        files["b.wav"] = older;
        files.refuseFrom = files.calls + refused;
        life();
        EXPECT_EQ(files.openFiles, 0) << refused;

        // Whatever was lost: what is recorded from here on is there, behind a correct header.
        for (const char* name : {"a.wav", "b.wav"}) {
            recorder.setPath(name, false);
            write(pattern(80, 5000));
            recorder.close();
            EXPECT_EQ(fault(name), "") << refused;
            const Bytes data = dataOf(files[name]);
            ASSERT_GE(data.size(), 80u);
            EXPECT_EQ(Bytes(data.end() - 80, data.end()), pattern(80, 5000)) << refused;
            EXPECT_FALSE(recorder.failed());
        }
    }
}

TEST_F(RecorderFailure, ADeadDiskNeverStopsTheStream) {
    write(pattern(400));
    files.refuseFrom = files.calls + 1;
    files.refuseCount = 1000000;
    for (std::size_t i = 0; i < 100; ++i) {
        write(pattern(400, 400 * i));
        if (i % 7 == 0) recorder.close();
        if (i % 11 == 0) recorder.rewind(30);
        if (i == 50) streamIs({sampleType::int24, 6, 48000});
    }
    EXPECT_TRUE(recorder.failed());
    recorder.setPath("b.wav", false);
    EXPECT_EQ(files.openFiles, 0);
}

} // namespace
} // namespace velorine
