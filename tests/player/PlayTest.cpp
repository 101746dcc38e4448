#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <chrono>
#include <csignal>

namespace velorine::test {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int rate = 44100;

std::string noise(const Scratch& scratch, const std::string& name, double seconds,
                  int format = wav16) {
    const std::string path = scratch.path(name);
    writeNoise(path, {format, 2, rate, static_cast<std::int64_t>(seconds * rate), 1});
    return path;
}

// -- Without a terminal ------------------------------------------------------------------------

TEST(Play, TakesAsLongAsTheMusicAndIsQuiet) {
    const Scratch scratch;
    const auto begun = Clock::now();
    const Finished finished =
        run({"play", "--null", noise(scratch, "a.wav", 1.0),
             noise(scratch, "b.flac", 1.0, SF_FORMAT_FLAC | SF_FORMAT_PCM_16)});
    EXPECT_EQ(finished.exitCode, 0);
    EXPECT_EQ(finished.out + finished.err, "");
    EXPECT_GE(Seconds{Clock::now() - begun}.count(), 2.0);
}

TEST(Play, GoesOnThroughAChangeOfFormat) {
    const Scratch scratch;
    const std::string other = scratch.path("b.wav");
    writeNoise(other, {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 48000, 48000, 2});
    const Finished finished =
        run({"play", "--null", noise(scratch, "a.wav", 0.5), other, noise(scratch, "c.wav", 0.5)});
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(finished.err, "");
}

TEST(Play, WhatCannotBePlayedIsNamedAndTheRestPlays) {
    const Scratch scratch;
    const std::string missing = scratch.path("missing.wav");
    const std::string text = scratch.path("text.wav");
    writeText(text, "no audio at all\n");
    const auto begun = Clock::now();
    const Finished finished = run({"play", "--null", missing, noise(scratch, "a.wav", 0.7), text,
                                   noise(scratch, "b.wav", 0.7)});
    EXPECT_EQ(finished.exitCode, 3);
    EXPECT_EQ(finished.out, "");
    const auto lines = finished.errLines();
    ASSERT_EQ(lines.size(), 2U) << finished.err;
    EXPECT_EQ(lines[0], "velorine: " + missing + ": No such file or directory");
    EXPECT_EQ(lines[1], "velorine: " + text + ": is not an audio file that can be read");
    EXPECT_GE(Seconds{Clock::now() - begun}.count(), 1.4);
}

TEST(Play, NothingToPlayIsAFailure) {
    const Scratch scratch;
    const Finished finished = run({"play", "--null", scratch.path("missing")});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
}

TEST(Play, EndOfATrackIsHeardBeforeAVeryShortOne) {
    const Scratch scratch;
    const std::string shortest = scratch.path("b.wav");
    writeNoise(shortest, {wav16, 2, rate, 3, 1});
    const auto begun = Clock::now();
    const Finished finished = run({"play", "--null", noise(scratch, "a.wav", 2.0), shortest,
                                   "--set", "General/Fade on stop=false"});
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_GE(Seconds{Clock::now() - begun}.count(), 2.0);
}

TEST(Play, DeviceThatIsNotThereIsNamed) {
    const Scratch scratch;
    const Finished finished = run({"play", "--device", "Gramophone", noise(scratch, "a.wav", 0.5)});
    EXPECT_EQ(finished.exitCode, 0);
    ASSERT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_NE(finished.err.find("'Gramophone'"), std::string::npos) << finished.err;
    EXPECT_EQ(run({"play", "--device", "None", noise(scratch, "a.wav", 0.5)}).err, "");
}

class PlayCut : public testing::TestWithParam<int> {};

TEST_P(PlayCut, PlaysWhatIsThereAndSaysSo) {
    const Scratch scratch;
    const std::string path = noise(scratch, "cut", 3.0, GetParam());
    cut(path, 0.4);
    const Finished finished = run({"play", "--null", path});
    EXPECT_EQ(finished.exitCode, 3);
    ASSERT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_TRUE(finished.err.starts_with("velorine: " + path + ": is cut short")) << finished.err;
}

INSTANTIATE_TEST_SUITE_P(Containers, PlayCut,
                         testing::Values(wav16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                                         SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III));

TEST(Play, FileNameCannotReachTheTerminal) {
    const Finished finished = run({"play", "--null", "/nowhere/\033[31mred\nline"});
    EXPECT_EQ(finished.err, "velorine: /nowhere/?[31mred?line: No such file or directory\n");
}

// -- On a terminal -----------------------------------------------------------------------------

TEST(PlayOnTerminal, ShowsWhatItPlays) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "song.wav", 65)});
    EXPECT_TRUE(program.awaitOutput("0:01 / 1:05  queue ")) << program.output();
    EXPECT_TRUE(program.awaitOutput(" ms  44100 Hz 16-bit stereo -> 16-bit (null)  song.wav"))
        << program.output();
    EXPECT_NE(program.output().find("\033[1mplaying\033[0m"), std::string::npos);
    EXPECT_FALSE(program.terminalIsPlain());
    program.type("q");
    const Finished finished = program.finish();
    EXPECT_EQ(finished.exitCode, 0);
    EXPECT_TRUE(finished.out.ends_with("\r\033[K")) << "the status line stays";
}

TEST(PlayOnTerminal, NoColorMeansNone) {
    const Scratch scratch;
    Program program =
        Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)}, {{"NO_COLOR", "1"}});
    EXPECT_TRUE(program.awaitOutput("playing  0:00 / 1:00"));
    EXPECT_EQ(program.output().find("\033[1m"), std::string::npos);
    program.type("q");
    EXPECT_EQ(program.finish().exitCode, 0);
}

TEST(PlayOnTerminal, LineFitsANarrowTerminal) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)},
                                          {{"NO_COLOR", "1"}}, 24);
    EXPECT_TRUE(program.awaitOutput("\033[Kplaying  0:00 / 1:00  q\r"));
    program.type("q");
    EXPECT_EQ(program.finish().exitCode, 0);
}

TEST(PlayOnTerminal, KeysMoveThroughTheList) {
    const Scratch scratch;
    const std::string a = noise(scratch, "a.wav", 60);
    const std::string b = noise(scratch, "b.wav", 60);
    Program program = Program::onTerminal({"play", "--null", a, b});
    EXPECT_TRUE(program.awaitOutput("1/2 a.wav"));
    program.type("n");
    EXPECT_TRUE(program.awaitOutput("2/2 b.wav"));
    program.type("--");
    EXPECT_TRUE(program.awaitOutput("vol 89 %"));
    program.type(" ");
    EXPECT_TRUE(program.awaitOutput("paused"));
    program.type("n"); // behind the last there is nothing
    EXPECT_EQ(program.finish().exitCode, 0);
}

TEST(PlayOnTerminal, CursorKeysSeek) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)});
    EXPECT_TRUE(program.awaitOutput("0:00 / 1:00"));
    program.type("\033[C\033[C");
    EXPECT_TRUE(program.awaitOutput("0:10 / 1:00")) << program.output();
    program.type("q");
    EXPECT_EQ(program.finish().exitCode, 0);
}

TEST(PlayOnTerminal, InterruptionGivesTheTerminalBack) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)});
    EXPECT_TRUE(program.awaitOutput("0:01"));
    program.type("\003"); // Ctrl-C
    const Finished finished = program.finish();
    EXPECT_EQ(finished.exitCode, 130);
}

TEST(PlayOnTerminal, TerminalIsTakenAgainAfterAStop) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)});
    EXPECT_TRUE(program.awaitOutput("0:01"));
    program.send(SIGSTOP);
    program.makeTerminalPlain(); // as a shell does
    program.send(SIGCONT);
    while (program.terminalIsPlain()) {
    }
    program.type("q");
    EXPECT_EQ(program.finish().exitCode, 0);
}

TEST(PlayOnTerminal, SecondInterruptionEndsItAtOnceOnAPlainTerminal) {
    const Scratch scratch;
    Program program = Program::onTerminal({"play", "--null", noise(scratch, "a.wav", 60)});
    EXPECT_TRUE(program.awaitOutput("0:01"));
    program.type("\003");
    while (!program.terminalIsPlain()) {
    }
    program.type("\003");
    EXPECT_EQ(program.finish().exitCode, 130);
}

} // namespace
} // namespace velorine::test
