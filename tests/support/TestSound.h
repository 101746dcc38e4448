#pragma once

#include "output/SoundSystem.h"
#include "tests/support/TestClock.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace velorine::test {

/// A sound system on the test clock, with real buffer memory: it writes down every frame that the
/// play cursor passes. Only this shows lost, repeated and stale frames.
class TestSound final : public SoundSystem {
public:
    /// What was played from one buffer without a stop in between.
    struct Passage {
        Format format;
        std::int64_t startTick = 0; ///< clock ticks when its first frame was passed
        std::vector<std::byte> frames;

        int count() const { return static_cast<int>(frames.size()) / format.blockAlign(); }
    };

    explicit TestSound(TestClock& testClock) : clock(testClock) {}

    std::vector<Device> devices() override { return {{"Test device", "{test}"}}; }
    bool connected() const override { return isConnected; }
    bool connect(std::string& description, std::string& guid) override;
    void disconnect() override { isConnected = false; }
    std::unique_ptr<SoundBuffer> createBuffer(const Format& format) override;

    /// All passages so far, up to this moment.
    std::vector<Passage> passages();

    /// The samples of all passages in one, as `Sample`; tests that use one format.
    template <typename Sample>
    std::vector<Sample> heard() {
        std::vector<Sample> all;
        for (const Passage& passage : passages()) {
            const auto* const first = reinterpret_cast<const Sample*>(passage.frames.data());
            all.insert(all.end(), first, first + passage.frames.size() / sizeof(Sample));
        }
        return all;
    }

    /// Drops what was heard so far.
    void forget();

    double cardRate = 1.0; ///< the card's true rate over the nominal one
    int refusals = 0;      ///< buffers that won't be created
    int lostLocks = 0;     ///< locks that will answer "lost"
    bool playFails = false;
    int firmFrames = 0;                        ///< as `SoundBuffer::firmFrames`
    std::function<int(int frame)> cursorError; ///< what is reported in place of the true cursor
    int opens = 0;
    int closes = 0;
    int volume = 0; ///< hundredths of a decibel, as last set
    int pan = 0;
    std::vector<Format> formats; ///< of the buffers created

private:
    class Buffer;

    TestClock& clock;
    bool isConnected = false;
    std::mutex mutex; ///< guards what follows
    Buffer* live = nullptr;
    std::vector<Passage> log;
};

} // namespace velorine::test
