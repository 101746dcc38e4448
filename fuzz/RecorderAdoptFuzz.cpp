// Any bytes as a file that a recording goes on with: whatever they are, no call crashes, the frames
// that were recorded are at the end of the file, and its header is right.
//
// Input: 5 bytes that choose the stream and what is done with it, then the file.

#include "output/WavRecorder.h"
#include "tests/output/MemoryRecorderFiles.h"
#include "tests/output/WavParse.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

namespace {

using velorine::WavRecorder;
using velorine::test::Bytes;
using velorine::test::MemoryRecorderFiles;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

unsigned numberOf(std::byte byte) {
    return std::to_integer<unsigned>(byte);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t choices = 5;
    if (size < choices) return 0;
    const auto input = std::as_bytes(std::span{data, size});
    const unsigned type = numberOf(input[0]) % 7;
    const unsigned channels = numberOf(input[1]) % 16 + 1;
    constexpr int rates[] = {8000, 44100, 48000, 192000};
    const int rate = rates[numberOf(input[2]) % 4];
    const unsigned cycles = numberOf(input[3]) % 4 + 1;
    const unsigned frames = numberOf(input[4]) % 32;
    const unsigned takenBack = frames / 4;

    MemoryRecorderFiles files;
    files["x.wav"].assign(input.begin() + choices, input.end());
    WavRecorder recorder{files, [] { return true; }};
    recorder.active = 1;
    recorder.setPath("x.wav", false);
    recorder.streamFormat = static_cast<std::int32_t>(type);
    recorder.streamChannels = static_cast<std::int32_t>(channels);
    recorder.streamRate = rate;

    const unsigned frameBytes = velorine::test::headerRows[type].sampleBytes * channels;
    Bytes recorded;
    for (unsigned cycle = 0; cycle < cycles; ++cycle) {
        Bytes block = velorine::test::pattern(std::size_t{frames} * frameBytes, cycle);
        recorder.write(block.data(), block.size());
        recorder.rewind(takenBack);
        recorder.close();
        block.resize(std::size_t{frames - takenBack} * frameBytes);
        recorded.insert(recorded.end(), block.begin(), block.end());

        const Bytes& file = files["x.wav"];
        const std::string fault = velorine::test::headerFault(
            file, static_cast<int>(type), channels, static_cast<std::uint32_t>(rate));
        require(fault.empty(), fault.c_str());
        require(file.size() >= 44 + recorded.size(), "frames are missing");
        require(frames == 0 || Bytes(file.end() - static_cast<std::ptrdiff_t>(recorded.size()),
                                     file.end()) == recorded,
                "other frames than were recorded");
        require(!recorder.failed(), "no call was refused");
    }
    return 0;
}
