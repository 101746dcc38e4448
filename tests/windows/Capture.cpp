#include "tests/windows/Capture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>

namespace velorine::test {

namespace {

constexpr DWORD betweenReadsMs = 10;

std::ifstream recording() {
    const char* const path = std::getenv("VELORINE_CAPTURE");
    EXPECT_TRUE(path) << "no recording of what is heard";
    return std::ifstream{path ? path : "", std::ios::binary};
}

std::int16_t channel(Frame frame, int index) {
    return static_cast<std::int16_t>(frame >> (16 * index));
}

} // namespace

Capture::Capture() {
    std::ifstream file = recording();
    file.seekg(0, std::ios::end);
    offset = static_cast<std::uint64_t>(file.tellg()) / sizeof(Frame) * sizeof(Frame);
}

void Capture::update() {
    std::ifstream file = recording();
    file.seekg(0, std::ios::end);
    const auto end = static_cast<std::uint64_t>(file.tellg()) / sizeof(Frame) * sizeof(Frame);
    if (end <= offset) return;
    const std::size_t before = frames.size();
    const auto count = static_cast<std::size_t>((end - offset) / sizeof(Frame));
    frames.resize(before + count);
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char*>(frames.data() + before),
              static_cast<std::streamsize>(count * sizeof(Frame)));
    offset = end;
}

bool Capture::waitUntil(const std::function<bool()>& done, int timeoutMs) {
    const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(timeoutMs);
    for (;; Sleep(betweenReadsMs)) {
        update();
        if (done()) return true;
        if (GetTickCount64() > end) return false;
    }
}

bool Capture::waitForSilence(int ms) {
    update();
    const auto count = static_cast<std::ptrdiff_t>(ms) * rate / 1000;
    const auto begin = static_cast<std::ptrdiff_t>(frames.size());
    return waitUntil([&] {
        return std::ssize(frames) - begin >= count &&
               std::all_of(frames.end() - count, frames.end(), [](Frame f) { return f == 0; });
    });
}

std::optional<std::size_t> Capture::find(const std::vector<Frame>& wanted, std::size_t from) const {
    if (from > frames.size()) return std::nullopt;
    const auto found = std::search(frames.begin() + static_cast<std::ptrdiff_t>(from), frames.end(),
                                   wanted.begin(), wanted.end(), close);
    if (found == frames.end()) return std::nullopt;
    return static_cast<std::size_t>(found - frames.begin());
}

bool close(Frame a, Frame b) {
    return std::abs(channel(a, 0) - channel(b, 0)) <= 1 &&
           std::abs(channel(a, 1) - channel(b, 1)) <= 1;
}

std::vector<Frame> noise(std::size_t count, std::uint32_t seed) {
    std::mt19937 random{seed};
    std::vector<Frame> frames(count);
    for (Frame& frame : frames)
        frame = (random() & 0x1fff'1fff) + 0x0010'0010;
    return frames;
}

std::vector<Frame> part(const std::vector<Frame>& whole, std::size_t from, std::size_t count) {
    const std::size_t begin = std::min(from, whole.size());
    const std::size_t end = std::min(begin + count, whole.size());
    return {whole.begin() + static_cast<std::ptrdiff_t>(begin),
            whole.begin() + static_cast<std::ptrdiff_t>(end)};
}

} // namespace velorine::test
