#include "output/directsound/DirectSoundSystem.h"

#include "output/directsound/WaveFormat.h"
#include "tests/windows/Capture.h"

#include <gtest/gtest.h>

#include <cstring>

namespace velorine::test {
namespace {

SoundSystem::Format format(int tag, int channels, int bits, int mask, int validBits = 0) {
    SoundSystem::Format wanted;
    wanted.formatTag = tag;
    wanted.channels = channels;
    wanted.rate = Capture::rate;
    wanted.containerBits = bits;
    wanted.validBits = validBits == 0 ? bits : validBits;
    wanted.channelMask = mask;
    wanted.bufferFrames = 2 * Capture::rate + 2560;
    return wanted;
}

// -- How a format is told ----------------------------------------------------------------------

TEST(WaveFormat, MonoAndStereoOfUpTo16BitsArePlain) {
    for (const auto& wanted :
         {format(1, 1, 8, 4), format(1, 1, 16, 0), format(1, 2, 16, 3), format(1, 2, 8, 0)}) {
        const WAVEFORMATEXTENSIBLE wave = waveFormat(wanted);
        EXPECT_EQ(wave.Format.wFormatTag, 1);
        EXPECT_EQ(wave.Format.cbSize, 0);
        EXPECT_EQ(wave.Format.nBlockAlign, wanted.blockAlign());
        EXPECT_EQ(wave.Format.nAvgBytesPerSec,
                  static_cast<DWORD>(Capture::rate * wanted.blockAlign()));
    }
}

TEST(WaveFormat, AllOthersAreExtensible) {
    for (const auto& wanted : {format(3, 2, 32, 3), format(1, 2, 24, 3), format(1, 1, 16, 3),
                               format(1, 2, 16, 4), format(1, 6, 16, 0), format(1, 2, 32, 3, 28)}) {
        const WAVEFORMATEXTENSIBLE wave = waveFormat(wanted);
        EXPECT_EQ(wave.Format.wFormatTag, 0xfffe);
        EXPECT_EQ(wave.Format.cbSize, 22);
        EXPECT_EQ(wave.Format.wBitsPerSample, wanted.containerBits);
        EXPECT_EQ(wave.Samples.wValidBitsPerSample, wanted.validBits);
        EXPECT_EQ(wave.dwChannelMask, static_cast<DWORD>(wanted.channelMask));
        const std::uint8_t tail[] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                     0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71};
        EXPECT_EQ(wave.SubFormat.Data1, static_cast<DWORD>(wanted.formatTag));
        EXPECT_EQ(std::memcmp(&wave.SubFormat.Data2, tail, sizeof tail), 0);
    }
}

TEST(WaveFormat, BitsAreRoundedUpToBytesAndValidOnesHeldToThem) {
    const WAVEFORMATEXTENSIBLE odd = waveFormat(format(1, 2, 28, 3, 28));
    EXPECT_EQ(odd.Format.wBitsPerSample, 32);
    EXPECT_EQ(odd.Format.nBlockAlign, 8);
    EXPECT_EQ(odd.Samples.wValidBitsPerSample, 28);
    EXPECT_EQ(waveFormat(format(1, 2, 24, 3, 256)).Samples.wValidBitsPerSample, 24);
    EXPECT_EQ(waveFormat(format(1, 2, 24, 3, -1)).Samples.wValidBitsPerSample, 24);
}

// -- A real device -----------------------------------------------------------------------------

class DirectSound : public testing::Test {
protected:
    std::unique_ptr<SoundBuffer> open(const SoundSystem::Format& wanted) {
        std::string name;
        std::string guid;
        EXPECT_TRUE(sound.connect(name, guid));
        return sound.createBuffer(wanted);
    }

    DirectSoundSystem sound;
};

TEST_F(DirectSound, ListsThePrimaryDeviceFirstAndTheOthersByTheirGuid) {
    const auto devices = sound.devices();
    ASSERT_GE(devices.size(), 2u);
    EXPECT_EQ(devices[0].guid, "");
    EXPECT_EQ(devices[1].guid.size(), 38u);
    EXPECT_EQ(devices[1].guid.front(), '{');
}

TEST_F(DirectSound, ANamedDeviceKeepsItsNameAndItsConnection) {
    const auto devices = sound.devices();
    std::string name = devices[1].description;
    std::string guid;
    ASSERT_TRUE(sound.connect(name, guid));
    EXPECT_EQ(name, devices[1].description);
    const auto buffer = sound.createBuffer(format(1, 2, 16, 3));
    ASSERT_TRUE(buffer);
    ASSERT_TRUE(sound.connect(name, guid));
    EXPECT_EQ(buffer->play(), SoundBuffer::Result::ok) << "the buffer still belongs to it";
}

TEST_F(DirectSound, ADeviceThatIsNotThereFallsBackToThePrimaryOne) {
    std::string name = "Gone";
    std::string guid = "{00000000-0000-0000-0000-000000000000}";
    EXPECT_TRUE(sound.connect(name, guid));
    EXPECT_EQ(name, "");
    EXPECT_EQ(guid, "");
    EXPECT_TRUE(sound.connected());
}

TEST_F(DirectSound, TheHiddenWindowLivesAsLongAsTheConnection) {
    const auto windows = [] { return FindWindowA("DS Window", "DS window") != nullptr; };
    EXPECT_FALSE(windows());
    open(format(1, 2, 16, 3));
    EXPECT_TRUE(windows());
    RECT place{};
    const HWND window = FindWindowA("DS Window", "DS window");
    EXPECT_TRUE(GetWindowRect(window, &place));
    EXPECT_EQ(place.right - place.left, 256);
    EXPECT_FALSE(IsWindowVisible(window));
    SendMessageA(window, WM_CLOSE, 0, 0);
    EXPECT_TRUE(windows()) << "nobody else closes it";
    sound.disconnect();
    EXPECT_FALSE(windows());
}

TEST_F(DirectSound, FormatsOfEveryKindGetABuffer) {
    for (const auto& wanted : {format(1, 1, 8, 4), format(1, 2, 16, 3), format(1, 2, 24, 3),
                               format(1, 2, 32, 3), format(3, 2, 32, 3)}) {
        const auto buffer = open(wanted);
        EXPECT_TRUE(buffer) << wanted.containerBits;
    }
}

TEST_F(DirectSound, AFormatThatCannotBeIsRefused) {
    EXPECT_FALSE(open(format(1, 2, 0, 3)));
    EXPECT_FALSE(DirectSoundSystem{}.createBuffer(format(1, 2, 16, 3))) << "not connected";
}

TEST_F(DirectSound, ARegionThatWrapsComesInTwoPieces) {
    const auto buffer = open(format(1, 2, 16, 3));
    ASSERT_TRUE(buffer);
    const int frames = 2 * Capture::rate + 2560;
    SoundBuffer::Regions regions;
    ASSERT_EQ(buffer->lock(frames - 100, 250, regions), SoundBuffer::Result::ok);
    EXPECT_EQ(regions.firstFrames, 100);
    EXPECT_EQ(regions.secondFrames, 150);
    ASSERT_TRUE(regions.second);
    buffer->unlock(regions);
}

TEST_F(DirectSound, TheCursorGoesRoundFromWhereItWasPut) {
    const auto buffer = open(format(1, 2, 16, 3));
    ASSERT_TRUE(buffer);
    const int frames = 2 * Capture::rate + 2560;
    int cursor = 0;
    buffer->setVolume(-10000);
    buffer->setPosition(Capture::rate / 20);
    ASSERT_TRUE(buffer->playCursor(cursor));
    EXPECT_EQ(cursor, Capture::rate / 20);
    buffer->setPosition(frames - 200);
    ASSERT_EQ(buffer->play(), SoundBuffer::Result::ok);
    Capture clock;
    EXPECT_TRUE(clock.waitUntil([&] { return buffer->playCursor(cursor) && cursor < 20'000; }));
    buffer->stop();
    EXPECT_TRUE(buffer->restore());
}

} // namespace
} // namespace velorine::test
