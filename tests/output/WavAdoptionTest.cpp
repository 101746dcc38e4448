#include "output/WavRecorder.h"

#include "output/WavHeader.h"
#include "tests/output/RecorderFixture.h"
#include "tests/output/TemporaryFolder.h"

#include <filesystem>

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::joined;
using test::pattern;

class WavAdoption : public test::RecorderFixture {
protected:
    /// The file's data after `more` was recorded behind `older`.
    Bytes appended(const Bytes& older, const Bytes& more) {
        files["b.wav"] = older;
        recorder.setPath("b.wav", false);
        write(more);
        recorder.close();
        EXPECT_EQ(fault("b.wav"), "");
        return dataOf(files["b.wav"]);
    }
};

TEST_F(WavAdoption, GoesOnInTheFilesOwnFormat) {
    const struct {
        unsigned tag, bits;
        int type;
    } cases[] = {{1, 8, sampleType::int8},     {1, 16, sampleType::int16},
                 {1, 24, sampleType::int24},   {1, 28, sampleType::int28},
                 {1, 32, sampleType::int32},   {3, 32, sampleType::float32},
                 {3, 64, sampleType::float64}, {1, 64, sampleType::float64}};
    for (const auto& [tag, bits, type] : cases) {
        streamIs({type, 3, 22050});
        const Bytes older = test::plainWav(tag, 3, 22050, bits, pattern(2160));
        EXPECT_EQ(appended(older, pattern(720, 2160)), pattern(2880))
            << "tag " << tag << ", bits " << bits;
    }
}

TEST_F(WavAdoption, GoesOnInFloatInAnExtensibleFile) {
    for (const unsigned bits : {32u, 64u}) {
        streamIs({bits == 32 ? sampleType::float32 : sampleType::float64, 1, 48000});
        const Bytes older = test::extensibleWav(3, 1, 48000, bits, pattern(1600));
        const Bytes data = appended(older, pattern(320, 1600));
        // The longer header's rest stays in the file, as sound.
        EXPECT_EQ(data, joined({Bytes(older.begin() + 44, older.end()), pattern(320, 1600)}));
    }
}

TEST_F(WavAdoption, TellsIntegersFromFloatInAnExtensibleFile) {
    const Bytes integers = test::extensibleWav(1, 2, 48000, 32, pattern(1600));
    streamIs({sampleType::int32, 2, 48000});
    EXPECT_EQ(appended(integers, pattern(320)).size(), 24u + 1600u + 320u);
    streamIs({sampleType::float32, 2, 48000});
    EXPECT_EQ(appended(integers, pattern(320)), pattern(320));
}

TEST_F(WavAdoption, DiscardsAFileOfAnotherFormat) {
    const struct {
        unsigned tag, channels, rate, bits;
    } cases[] = {{1, 2, 48000, 16}, {1, 1, 44100, 16},     {1, 2, 44100, 24},
                 {1, 2, 44100, 20}, {3, 2, 44100, 32},     {1, 0, 44100, 16},
                 {1, 2, 0, 16},     {1, 65535, 44100, 16}, {1, 2, 0xFFFFFFFF, 16}};
    for (const auto& [tag, channels, rate, bits] : cases) {
        const Bytes older = test::plainWav(tag, channels, rate, bits, pattern(1000));
        EXPECT_EQ(appended(older, pattern(400)), pattern(400))
            << tag << ' ' << channels << ' ' << rate << ' ' << bits;
    }
}

TEST_F(WavAdoption, RestartsAFileThatIsTooShortForAHeader) {
    const Bytes whole = test::plainWav(1, 2, 44100, 16, pattern(400));
    for (std::size_t size = 0; size < 44; ++size) {
        const Bytes older(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(appended(older, pattern(400, 400)), pattern(400, 400)) << size;
    }
    const Bytes headerOnly(whole.begin(), whole.begin() + 44);
    EXPECT_EQ(appended(headerOnly, pattern(400, 400)), pattern(400, 400));
}

TEST_F(WavAdoption, GoesOnAtAWholeFrame) {
    streamIs({sampleType::int24, 2, 44100});
    const Bytes whole = test::plainWav(1, 2, 44100, 24, pattern(600));
    for (std::ptrdiff_t cut = 1; cut <= 12; ++cut) {
        const Bytes older(whole.begin(), whole.end() - cut);
        const std::size_t kept = cut <= 6 ? 594 : 588;
        EXPECT_EQ(appended(older, pattern(60, 1000)), joined({pattern(kept), pattern(60, 1000)}))
            << cut;
    }
}

TEST_F(WavAdoption, CountsTheDataByTheFilesSize) {
    Bytes crashed = test::plainWav(1, 2, 44100, 16, pattern(800));
    for (std::size_t i = 40; i < 44; ++i)
        crashed[i] = {}; // as a program leaves it that ended before it completed the header
    EXPECT_EQ(appended(crashed, pattern(400, 800)), pattern(1200));
}

TEST_F(WavAdoption, WritesTheHeaderAtOnce) {
    Bytes crashed = test::plainWav(1, 2, 44100, 16, pattern(800));
    crashed[40] = std::byte{1};
    files["b.wav"] = crashed;
    recorder.setPath("b.wav", false);
    write({});
    EXPECT_TRUE(recorder.isOpen());
    EXPECT_EQ(fault("b.wav"), "");
}

TEST_F(WavAdoption, GoesOnInItsOwnFormatWhenTheHeaderCannotBeRead) {
    write(pattern(400));
    recorder.close();
    files.refuseFrom = files.calls + 3; // behind opening and size: the reading
    write(pattern(400, 400));
    EXPECT_TRUE(recorder.failed());
    recorder.close();
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(800));
    EXPECT_EQ(fault("a.wav"), "");
}

TEST(WavFile, IsBrokenWhileAFileIsOpenWhoseHeaderCannotBeRead) {
    test::MemoryRecorderFiles files;
    files["a.wav"] = test::plainWav(1, 2, 44100, 16, pattern(400));
    WavFile file{files};
    file.path = "a.wav";
    files.refuseFrom = 3; // behind opening and size
    ASSERT_TRUE(file.openExisting({}));
    EXPECT_TRUE(file.isBroken());
    EXPECT_EQ(file.format(), SampleFormat{});
    file.finish();
    EXPECT_FALSE(file.isBroken());
    ASSERT_TRUE(file.openExisting({}));
    EXPECT_FALSE(file.isBroken());
}

TEST(WavFileOfTheMachine, IsAdoptedBeyondFourGibibytes) {
    const test::TemporaryFolder folder;
    const std::string path = folder.path("long.wav");
    const auto header = wavHeader({sampleType::int16, 2, 48000}, 0);
    test::fill(path, {header.begin(), header.end()});
    const std::uintmax_t size = 44 + 0x1'0000'0000;
    std::error_code refused;
    std::filesystem::resize_file(path, size, refused); // sparse
    if (refused) GTEST_SKIP() << "the disk refuses files of that size";
    {
        WavRecorder recorder{RecorderFiles::native(), [] { return false; }};
        recorder.active = 1;
        recorder.setPath(path, false);
        recorder.write(pattern(400).data(), 400);
        EXPECT_FALSE(recorder.failed());
    }
    ASSERT_EQ(std::filesystem::file_size(path), size + 400);
    auto file = RecorderFiles::native().openExisting(path.c_str());
    ASSERT_TRUE(file);
    Bytes tail(400), head(44);
    file->read(static_cast<std::int64_t>(size), tail);
    EXPECT_EQ(tail, pattern(400));
    file->read(0, head);
    const auto fields = test::parseHeader(head);
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->riff, 0xFFFFFFFFu);
    EXPECT_EQ(fields->data, 0xFFFFFFFFu);
}

} // namespace
} // namespace velorine
