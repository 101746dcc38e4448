#include "player/HostFormat.h"

#include <gtest/gtest.h>

#include <sndfile.h>

namespace velorine {
namespace {

TEST(HostFormat, IntegerFilesKeepTheirDepth) {
    EXPECT_EQ(hostBitsFor(SF_FORMAT_WAV | SF_FORMAT_PCM_U8), 8);
    EXPECT_EQ(hostBitsFor(SF_FORMAT_AIFF | SF_FORMAT_PCM_S8), 8);
    EXPECT_EQ(hostBitsFor(SF_FORMAT_FLAC | SF_FORMAT_PCM_16), 16);
    EXPECT_EQ(hostBitsFor(SF_FORMAT_WAV | SF_FORMAT_PCM_24), 24);
    EXPECT_EQ(hostBitsFor(SF_FORMAT_WAVEX | SF_FORMAT_PCM_32), 32);
    EXPECT_EQ(hostBitsFor(SF_FORMAT_CAF | SF_FORMAT_ALAC_20), 24);
}

TEST(HostFormat, EverythingElseIsDouble) {
    for (const int subtype : {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE, SF_FORMAT_VORBIS, SF_FORMAT_OPUS,
                              SF_FORMAT_MPEG_LAYER_III, SF_FORMAT_ULAW, SF_FORMAT_MS_ADPCM})
        EXPECT_EQ(hostBitsFor(SF_FORMAT_WAV | subtype), 64) << std::hex << subtype;
}

TEST(HostFormat, DescribesItself) {
    EXPECT_EQ(describe({44100, 2, 16}), "44100 Hz 16-bit stereo");
    EXPECT_EQ(describe({48000, 1, 64}), "48000 Hz double mono");
    EXPECT_EQ(describe({96000, 6, 24}), "96000 Hz 24-bit 6 channels");
    EXPECT_EQ((HostFormat{96000, 6, 24}.bytesPerFrame()), 18);
}

} // namespace
} // namespace velorine
