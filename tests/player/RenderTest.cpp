#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

namespace velorine::test {
namespace {

using Names = std::vector<std::string>;

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

TEST(Render, FolderTakesAFileEach) {
    const Scratch scratch;
    Names arguments;
    for (const char* name : {"a.wav", "b.flac", "c.wav"}) {
        const int container = name[2] == 'f' ? SF_FORMAT_FLAC : SF_FORMAT_WAV;
        const int rate = name[0] == 'c' ? 48000 : 44100;
        arguments.push_back(scratch.path(name));
        writeNoise(arguments.back(), {container | SF_FORMAT_PCM_16, 2, rate, 50'000, 5});
    }
    arguments.insert(arguments.end(), {"-o", scratch.path("made/")});

    const Finished finished = renderPlain(arguments);
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const auto same = [&](const char* in, const char* out) {
        return decode(scratch.path(in)).samples == decode(scratch.path(out)).samples;
    };
    EXPECT_TRUE(same("a.wav", "made/a.wav"));
    EXPECT_TRUE(same("b.flac", "made/b.wav"));
    EXPECT_TRUE(same("c.wav", "made/c.wav"));
}

// -- What can't be rendered --------------------------------------------------------------------

TEST(Render, DifferentFormatsIntoOneFileAreRefused) {
    const Scratch scratch;
    writeNoise(scratch.path("a.wav"), {wav16, 2, 44100, 1000, 1});
    writeNoise(scratch.path("b.wav"), {wav16, 2, 48000, 1000, 1});

    const Finished finished =
        renderPlain({scratch.path("a.wav"), scratch.path("b.wav"), "-o", scratch.path("out.wav")});
    EXPECT_EQ(finished.exitCode, 1);
    ASSERT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_NE(finished.err.find("b.wav"), std::string::npos);
    EXPECT_NE(finished.err.find("48000 Hz"), std::string::npos);
    EXPECT_EQ(scratch.names(), (Names{"a.wav", "b.wav"}));
}

/// A file that can't be rendered whole, by the way in which it can't.
void makeBad(const std::string& path, const std::string& kind) {
    if (kind == "empty") writeText(path, "");
    if (kind == "text") writeText(path, "This is not audio, however long one listens to it.\n");
    if (kind == "folder") std::filesystem::create_directory(path);
    if (kind == "noframes") writeNoise(path, {wav16, 2, 44100, 0, 1});
    if (kind == "manychannels") writeNoise(path, {wav16, 17, 44100, 100, 1});
    if (kind.starts_with("cut")) {
        int format = wav16;
        if (kind == "cutflac") format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
        if (kind == "cutogg") format = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
        if (kind == "cutmp3") format = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
        writeNoise(path, {format, 2, 44100, 200'000, 1});
        cut(path, 0.6);
    }
}

class RenderBad : public testing::TestWithParam<const char*> {};

TEST_P(RenderBad, IsNamedOnOneLineAndLeavesNothing) {
    const Scratch scratch;
    const std::string bad = scratch.path("bad");
    makeBad(bad, GetParam());
    const Names before = scratch.names();

    const Finished finished = renderPlain({bad, "-o", scratch.path("out.wav")});
    EXPECT_EQ(finished.exitCode, 1);
    ASSERT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_TRUE(finished.err.starts_with("velorine: " + bad + ": ")) << finished.err;
    EXPECT_EQ(scratch.names(), before);
}

TEST_P(RenderBad, IsNoHindranceForTheOthers) {
    const Scratch scratch;
    const std::string bad = scratch.path("bad");
    const std::string good = scratch.path("good.wav");
    makeBad(bad, GetParam());
    writeNoise(good, {wav16, 2, 44100, 1000, 1});

    const Finished finished = renderPlain({bad, good, "-o", scratch.path("made/")});
    EXPECT_EQ(finished.exitCode, 3);
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_FALSE(std::filesystem::exists(scratch.path("made/bad.wav")));
    EXPECT_TRUE(decode(scratch.path("made/good.wav")).samples == decode(good).samples);
}

TEST_P(RenderBad, SpoilsTheOneFileThatItBelongsTo) {
    const Scratch scratch;
    const std::string bad = scratch.path("bad");
    const std::string good = scratch.path("good.wav");
    makeBad(bad, GetParam());
    writeNoise(good, {wav16, 2, 44100, 1000, 1});
    const Names before = scratch.names();

    const Finished finished = renderPlain({good, bad, "-o", scratch.path("out.wav")});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_EQ(scratch.names(), before);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, RenderBad,
                         testing::Values("missing", "empty", "text", "folder", "noframes",
                                         "manychannels", "cutwav", "cutflac", "cutogg", "cutmp3"),
                         [](const auto& kind) { return std::string{kind.param}; });

TEST(Render, FolderThatGetsNothingIsNotLeft) {
    const Scratch scratch;
    EXPECT_EQ(renderPlain({scratch.path("missing"), "-o", scratch.path("made/")}).exitCode, 1);
    EXPECT_EQ(scratch.names(), Names{});
}

TEST(Render, FailureLeavesAnOlderOutputAsItWas) {
    const Scratch scratch;
    writeText(scratch.path("out.wav"), "older");
    makeBad(scratch.path("bad.flac"), "cutflac");
    EXPECT_EQ(renderPlain({scratch.path("bad.flac"), "-o", scratch.path("out.wav")}).exitCode, 1);
    EXPECT_EQ(bytesOf(scratch.path("out.wav")).size(), 5U);
}

TEST(Render, AnOlderOutputIsReplaced) {
    const Scratch scratch;
    writeText(scratch.path("out.wav"), std::string(100'000, 'x'));
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 1000, 1});
    EXPECT_EQ(renderPlain({scratch.path("in.wav"), "-o", scratch.path("out.wav")}).exitCode, 0);
    EXPECT_TRUE(bytesOf(scratch.path("out.wav")) == bytesOf(scratch.path("in.wav")));
    EXPECT_EQ(scratch.names(), (Names{"in.wav", "out.wav"}));
}

TEST(Render, InputIsNeverItsOwnOutput) {
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    writeNoise(in, {wav16, 2, 44100, 1000, 1});
    const auto before = bytesOf(in);
    EXPECT_EQ(renderPlain({in, "-o", in}).exitCode, 1);
    EXPECT_EQ(renderPlain({in, "-o", scratch.path(".")}).exitCode, 1);
    EXPECT_TRUE(bytesOf(in) == before);
}

TEST(Render, TwoInputsForOneNameAreRefused) {
    const Scratch scratch;
    const Names inputs{scratch.path("a.wav"), scratch.path("a.flac")};
    writeNoise(inputs[0], {wav16, 2, 44100, 1000, 1});
    writeNoise(inputs[1], {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, 1000, 1});
    EXPECT_EQ(renderPlain({inputs[0], inputs[1], "-o", scratch.path("made/")}).exitCode, 1);
    EXPECT_EQ(scratch.names(), (Names{"a.flac", "a.wav"}));
}

/// A device of the kind of /dev/null or /dev/full: never that one itself, which a mistake would
/// remove for the whole machine.
class RenderToDevice : public testing::Test {
protected:
    void makeDevice(unsigned minor) {
        if (mknod(device.c_str(), S_IFCHR | 0666, makedev(1, minor)) != 0)
            GTEST_SKIP() << "no right to make a device here";
        writeNoise(in, {wav16, 2, 44100, 100'000, 1});
    }

    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    const std::string device = scratch.path("device");
};

TEST_F(RenderToDevice, FullOneIsReported) {
    makeDevice(7);
    if (IsSkipped()) return;
    const Finished finished = renderPlain({in, "-o", device});
    EXPECT_EQ(finished.exitCode, 1);
    ASSERT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_TRUE(finished.err.starts_with("velorine: " + device + ": could not be written"))
        << finished.err;
}

TEST_F(RenderToDevice, NullStaysADevice) {
    makeDevice(3);
    if (IsSkipped()) return;
    EXPECT_EQ(renderPlain({in, "-o", device}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_character_file(device));
    EXPECT_EQ(scratch.names(), (Names{"device", "in.wav"}));
}

TEST(Render, MissingFolderIsReported) {
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 1000, 1});
    const Finished finished =
        renderPlain({scratch.path("in.wav"), "-o", scratch.path("no/such/out.wav")});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_EQ(scratch.names(), Names{"in.wav"});
}

TEST(Render, TooLongForAWavFileIsRefused) {
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    writeNoise(in, {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 44100, 1000, 1});
    growWithSilence(in, 3'000'000'000); // as 16 bits more than a file's 32-bit sizes can say
    const Finished finished =
        run({"render", in, "-o", scratch.path("out.wav"), "--set", "Output/bits=16"});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_NE(finished.err.find("4 GiB"), std::string::npos) << finished.err;
    EXPECT_EQ(scratch.names(), Names{"in.wav"});
}

// -- The run -----------------------------------------------------------------------------------

TEST(Render, StoresNoSettings) {
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 1000, 1});
    const Finished finished = run({"render", scratch.path("in.wav"), "-o", scratch.path("out.wav")},
                                  {{"VELORINE_CONFIG_DIR", scratch.path("settings")}});
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(scratch.names(), (Names{"in.wav", "out.wav"}));
}

TEST(Render, SettingsOfTheRunCount) {
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 1000, 1});
    const Finished finished = run({"render", "--set", "Output/bits=24", "--set", "Eq/enable=0",
                                   scratch.path("in.wav"), "-o", scratch.path("out.wav")});
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(decode(scratch.path("out.wav")).format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_24);
}

TEST(Render, InterruptionLeavesNothing) {
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    writeNoise(in, {wav16, 2, 44100, 1000, 1});
    growWithSilence(in, 2'000'000'000);

    Program program{{"render", in, "-o", scratch.path("out.wav")}};
    while (scratch.names().size() < 2)
        std::this_thread::yield(); // until it has begun to write
    program.send(SIGINT);
    const Finished finished = program.finish();
    EXPECT_EQ(finished.exitCode, 130);
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(scratch.names(), Names{"in.wav"});
}

TEST(Render, MemoryStaysSmallHoweverLongTheFile) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer has memory of its own";
#endif
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    writeNoise(in, {wav16, 2, 44100, 1000, 1});
    growWithSilence(in, 200'000'000); // 19 minutes
    const Finished finished = renderPlain({in, "-o", scratch.path("out.wav")});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_LT(finished.peakKb, 32 * 1024);
}

TEST(Render, ShowsItsProgressOnATerminalAlone) {
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    writeNoise(in, {wav16, 2, 44100, 1000, 1});
    growWithSilence(in, 2'000'000'000);
    Program program = Program::onTerminal({"render", in, "-o", scratch.path("out.wav")});
    EXPECT_TRUE(program.awaitOutput("x real time  ")) << program.output();
    EXPECT_NE(program.output().find(" %"), std::string::npos);
    program.send(SIGINT);
    EXPECT_EQ(program.finish().exitCode, 130);
}

} // namespace
} // namespace velorine::test
