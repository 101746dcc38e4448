#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace velorine::test {

/// 16-bit stereo frame as one number, left in the low half.
using Frame = std::uint32_t;

/// What the sound server has played since this object was made: the growing recording of its
/// monitor, 16 bits, stereo, 44.1 kHz.
class Capture {
public:
    static constexpr int rate = 44100;

    Capture();

    /// Reads on; `frames` grows.
    void update();

    /// Reads on until `done` says so. @return false when `timeoutMs` ran out
    bool waitUntil(const std::function<bool()>& done, int timeoutMs = 10'000);

    /// Waits until `ms` of silence are the last that was recorded.
    bool waitForSilence(int ms);

    /// First place from `from` on where `wanted` is played, each sample within 1 of what it was.
    std::optional<std::size_t> find(const std::vector<Frame>& wanted, std::size_t from = 0) const;

    std::vector<Frame> frames;

private:
    std::uint64_t offset = 0; ///< bytes of the recording that have been read
};

/// Whether two frames are within 1 LSB of each other in both channels.
bool close(Frame a, Frame b);

/// Noise of both channels, never 0, the same for a seed.
std::vector<Frame> noise(std::size_t count, std::uint32_t seed);

/// Part of `whole`, as far as it goes.
std::vector<Frame> part(const std::vector<Frame>& whole, std::size_t from, std::size_t count);

} // namespace velorine::test
