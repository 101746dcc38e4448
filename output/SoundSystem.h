#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velorine {

/// A looping buffer of the machine's sound system, and the cursor that plays it.
///
/// All lengths and places are frames. Calls come from the device's command and feed threads and
/// from the playback thread, never two at once.
class SoundBuffer {
public:
    enum class Result { ok, lost, failed };

    /// A stretch of the buffer that may be written; where it wraps it comes in two pieces.
    struct Regions {
        std::byte* first = nullptr;
        int firstFrames = 0;
        std::byte* second = nullptr;
        int secondFrames = 0;
    };

    virtual ~SoundBuffer() = default;

    virtual Result lock(int startFrame, int frames, Regions& regions) = 0;
    virtual void unlock(const Regions& regions) = 0;

    /// @return false when the cursor can't be read
    virtual bool playCursor(int& frame) = 0;

    virtual Result play() = 0; ///< loops until `stop`
    virtual void stop() = 0;
    virtual void setPosition(int frame) = 0;

    virtual void setVolume(int hundredthsDb) = 0; ///< -10000 to 0
    virtual void setPan(int hundredthsDb) = 0;    ///< -10000 (left only) to 10000 (right only)

    /// Gets a lost buffer back. @return false while it is still lost
    virtual bool restore() = 0;

    /// Frames beyond the play cursor that can no longer be replaced.
    virtual int firmFrames() { return 0; }

    /// Nothing plays what is in the buffer for now: it goes on with the clock, silently, until
    /// something does again.
    virtual bool away() { return false; }
};

/// The machine's sound system: what it can play on, and a connection to one of that.
class SoundSystem {
public:
    struct Device {
        std::string description;
        std::string guid; ///< text that names the device for good; empty for the default one

        bool operator==(const Device&) const = default;
    };

    struct Format {
        int formatTag = 1; ///< 1 integer, 3 float
        int channels = 2;
        int rate = 48000;       ///< Hz
        int containerBits = 16; ///< a multiple of 8
        int validBits = 16;
        int channelMask = 3;
        int bufferFrames = 0;

        int blockAlign() const { return channels * containerBits / 8; }
    };

    virtual ~SoundSystem() = default;

    /// In the system's order, the default device first.
    virtual std::vector<Device> devices() = 0;

    virtual bool connected() const = 0;

    /// Connects to the device that matches description and GUID; a connection to that same device
    /// stays. A device that can't be had falls back to the default one, and the texts are cleared.
    virtual bool connect(std::string& description, std::string& guid) = 0;
    virtual void disconnect() = 0;

    /// @return null when the device refuses the format
    virtual std::unique_ptr<SoundBuffer> createBuffer(const Format& format) = 0;

    /// Times that it ran out of samples in the midst of playing, since it was made. Any thread.
    virtual int underflows() const { return 0; }
};

} // namespace velorine
