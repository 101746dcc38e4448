#include "output/WavRecorder.h"

#include "output/RecordingsFolder.h"
#include "tests/output/RecorderFixture.h"
#include "tests/output/TemporaryFolder.h"

#include <memory>

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::pattern;

class WavRecording : public test::RecorderFixture {};

TEST_F(WavRecording, TouchesNoFileBeforeTheFirstWrite) {
    EXPECT_EQ(files.calls, 0);
    EXPECT_FALSE(recorder.isOpen());
}

TEST_F(WavRecording, HoldsWhatWasWrittenBehindItsHeader) {
    write(pattern(3000));
    write(pattern(1000, 3000));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(4000));
    const auto header = test::parseHeader(files["a.wav"]);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->riff, 4036u);
    EXPECT_EQ(header->data, 4000u);
    EXPECT_EQ(header->tag, 1u);
    EXPECT_EQ(header->bytesPerSecond, 176400u);
    EXPECT_EQ(header->blockAlign, 4u);
    EXPECT_EQ(header->bits, 16u);
    EXPECT_FALSE(recorder.failed());
}

TEST_F(WavRecording, HasAHeaderOfEveryType) {
    for (int type = 0; type <= 6; ++type) {
        const std::string name = std::to_string(type);
        recorder.setPath(name, false);
        streamIs({type, 3, 96000});
        write(pattern(720)); // whole frames of all of them
        recorder.close();
        EXPECT_EQ(fault(name), "");
        EXPECT_EQ(dataOf(files[name]), pattern(720));
    }
}

TEST_F(WavRecording, WithoutDataSays36And0) {
    write({});
    recorder.close();
    const auto header = test::parseHeader(files["a.wav"]);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->riff, 36u);
    EXPECT_EQ(header->data, 0u);
    EXPECT_EQ(files["a.wav"].size(), 44u);
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(WavRecording, LeavesOutAPartOfAFrame) {
    write(pattern(11));
    write(pattern(3, 11));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(8));
}

TEST_F(WavRecording, GoesOnAfterAClose) {
    for (std::size_t cycle = 0; cycle < 5; ++cycle) {
        write(pattern(400, 400 * cycle));
        recorder.close();
        recorder.close(); // no file is open
        EXPECT_EQ(dataOf(files["a.wav"]), pattern(400 * (cycle + 1)));
        EXPECT_EQ(fault("a.wav"), "");
    }
    EXPECT_EQ(files.creations, 1);
    EXPECT_FALSE(recorder.failed());
}

TEST_F(WavRecording, ClosesAtTheFirstWriteThatIsNotWanted) {
    write(pattern(400));
    recorder.active = 0;
    EXPECT_TRUE(recorder.isOpen());
    write(pattern(400, 400));
    EXPECT_FALSE(recorder.isOpen());
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(400));
    EXPECT_EQ(fault("a.wav"), "");

    const int calls = files.calls;
    write(pattern(400, 400));
    EXPECT_EQ(files.calls, calls);

    recorder.active = 1;
    write(pattern(400, 400));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(800));
}

TEST_F(WavRecording, OverwritesOnceOnly) {
    files["b.wav"] = test::plainWav(1, 2, 44100, 16, pattern(4000));
    recorder.setPath("b.wav", true);
    write(pattern(400));
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(400));

    write(pattern(400, 400)); // the order to overwrite is used up
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(800));
}

TEST_F(WavRecording, AppendsToAFileOfAnEarlierRun) {
    files["b.wav"] = test::plainWav(1, 2, 44100, 16, pattern(4000));
    recorder.setPath("b.wav", false);
    write(pattern(400, 4000));
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(4400));
    EXPECT_EQ(fault("b.wav"), "");
}

TEST_F(WavRecording, IsCompleteWhenThePathChanges) {
    write(pattern(400));
    recorder.setPath("b.wav", true);
    EXPECT_FALSE(recorder.isOpen());
    EXPECT_EQ(fault("a.wav"), "");
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(400));
    EXPECT_FALSE(files.has("b.wav"));

    write(pattern(80));
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(80));
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(400));
}

TEST_F(WavRecording, DiscardsWhatItHasWhenTheFormatChanges) {
    const SampleFormat formats[] = {{sampleType::int16, 2, 48000},
                                    {sampleType::int16, 1, 48000},
                                    {sampleType::float32, 1, 48000}};
    write(pattern(400));
    for (const SampleFormat& format : formats) {
        streamIs(format);
        write(pattern(200));
        write(pattern(200, 200));
        recorder.close();
        EXPECT_EQ(dataOf(files["a.wav"]), pattern(400));
        EXPECT_EQ(fault("a.wav"), "");
    }
}

TEST_F(WavRecording, GoesToTheRecordingsFolderWhenNoPathIsSet) {
    recorder.setPath("", false);
    write(pattern(400));
    EXPECT_EQ(recorder.path(), recordingsFolder() + "velorine.wav");
    recorder.close();
    EXPECT_EQ(dataOf(files[recordingsFolder() + "velorine.wav"]), pattern(400));
}

TEST_F(WavRecording, IgnoresAStreamWithoutChannels) {
    streamIs({sampleType::int16, 0, 44100});
    write(pattern(400));
    EXPECT_EQ(files.calls, 0);
}

TEST_F(WavRecording, IsCompletedByTheDestructor) {
    {
        WavRecorder shortLived{files, [] { return false; }};
        shortLived.active = 1;
        shortLived.streamRate = 44100;
        shortLived.setPath("b.wav", false);
        shortLived.write(pattern(400).data(), 400);
    }
    EXPECT_EQ(fault("b.wav"), "");
    EXPECT_EQ(files.openFiles, 0);
}

TEST_F(WavRecording, TakesBackFramesThatComeAgain) {
    write(pattern(400));
    recorder.rewind(30);
    write(pattern(200, 280));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(480));
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(WavRecording, TakesBackShorterThanBefore) {
    write(pattern(400));
    recorder.rewind(30);
    recorder.rewind(0);
    recorder.rewind(-5);
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(280));
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(WavRecording, TakesBackFramesOfAClosedFile) {
    write(pattern(400));
    recorder.close();
    recorder.rewind(30);
    EXPECT_TRUE(recorder.isOpen());
    write(pattern(200, 280));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(480));
}

TEST_F(WavRecording, TakesBackNoMoreThanItRecordedItself) {
    files["b.wav"] = test::plainWav(1, 2, 44100, 16, pattern(4000));
    recorder.setPath("b.wav", false);
    recorder.rewind(100);
    EXPECT_FALSE(recorder.isOpen());
    write(pattern(400, 4000));
    recorder.rewind(1000);
    recorder.close();
    EXPECT_EQ(dataOf(files["b.wav"]), pattern(4000));
    EXPECT_EQ(dataOf(files["a.wav"]), Bytes{});
}

TEST_F(WavRecording, TakesBackNothingFromBeforeAnInterruption) {
    write(pattern(400));
    recorder.active = 0;
    write(pattern(400, 400)); // delivered but not recorded
    recorder.active = 1;
    write(pattern(80, 400));
    recorder.rewind(50); // of these, 20 were recorded
    write(pattern(40, 400));
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(440));
}

TEST_F(WavRecording, TakesBackNothingBehindAChangeOfFormat) {
    write(pattern(400));
    streamIs({sampleType::int16, 2, 48000});
    write(pattern(200));
    recorder.rewind(60);
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), Bytes{});
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(WavRecording, LeavesAFileAloneThatIsGoneWhenItsFramesAreTakenBack) {
    write(pattern(400));
    recorder.close();
    files.refuseFrom = files.calls + 1; // somebody moved it away
    recorder.rewind(30);
    EXPECT_FALSE(recorder.isOpen());
    EXPECT_FALSE(recorder.failed());
}

TEST(WavRecorder, RecordsToTheMachinesFiles) {
    const test::TemporaryFolder folder;
    const std::string path = folder.path("new/song.wav");
    {
        WavRecorder recorder{RecorderFiles::native(), [] { return false; }};
        recorder.start();
        recorder.active = 1;
        recorder.streamRate = 44100;
        recorder.setPath(path, true);
        recorder.write(pattern(4000).data(), 4000);
        recorder.close();
        EXPECT_EQ(test::headerFault(test::contentOf(path), 1, 2, 44100), "");
        recorder.write(pattern(4000, 4000).data(), 4000);
        recorder.rewind(100);
    }
    EXPECT_EQ(dataOf(test::contentOf(path)), pattern(7600));
    EXPECT_EQ(test::headerFault(test::contentOf(path), 1, 2, 44100), "");
}

} // namespace
} // namespace velorine
