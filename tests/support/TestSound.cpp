#include "tests/support/TestSound.h"

#include <algorithm>

namespace velorine::test {

class TestSound::Buffer final : public SoundBuffer {
public:
    Buffer(TestSound& sound, const Format& wanted)
        : owner(sound), format(wanted), memory(static_cast<std::size_t>(wanted.bufferFrames) *
                                               static_cast<std::size_t>(wanted.blockAlign())) {}

    ~Buffer() override {
        const std::lock_guard guard{owner.mutex};
        catchUp();
        owner.live = nullptr;
        ++owner.closes;
    }

    Result lock(int startFrame, int frames, Regions& regions) override {
        const std::lock_guard guard{owner.mutex};
        if (owner.lostLocks > 0) {
            --owner.lostLocks;
            return Result::lost;
        }
        catchUp();
        if (startFrame < 0 || startFrame >= format.bufferFrames || frames > format.bufferFrames)
            return Result::failed;
        const int first = std::min(frames, format.bufferFrames - startFrame);
        regions = {at(startFrame), first, frames > first ? memory.data() : nullptr, frames - first};
        return Result::ok;
    }
    void unlock(const Regions&) override {}

    bool playCursor(int& frame) override {
        const std::lock_guard guard{owner.mutex};
        catchUp();
        frame = owner.cursorError ? owner.cursorError(cursor) : cursor;
        return true;
    }

    Result play() override {
        const std::lock_guard guard{owner.mutex};
        if (owner.playFails) return Result::failed;
        if (playing) return Result::ok;
        playing = true;
        startTick = owner.clock.ticks();
        passed = 0;
        owner.log.push_back({format, startTick, {}});
        return Result::ok;
    }
    void stop() override {
        const std::lock_guard guard{owner.mutex};
        catchUp();
        playing = false;
    }
    void setPosition(int frame) override {
        const std::lock_guard guard{owner.mutex};
        catchUp();
        cursor = frame;
    }
    void setVolume(int hundredthsDb) override { owner.volume = hundredthsDb; }
    void setPan(int hundredthsDb) override { owner.pan = hundredthsDb; }
    bool restore() override { return true; }
    int firmFrames() override { return owner.firmFrames; }

    /// Writes down what the cursor passed since the last call.
    void catchUp() {
        if (!playing) return;
        const std::int64_t elapsed = owner.clock.ticks() - startTick;
        const auto due = static_cast<std::int64_t>(static_cast<double>(elapsed) * format.rate *
                                                   owner.cardRate / 1e7);
        std::vector<std::byte>& heard = owner.log.back().frames;
        while (passed < due) {
            const auto run = static_cast<int>(
                std::min<std::int64_t>(due - passed, format.bufferFrames - cursor));
            heard.insert(heard.end(), at(cursor), at(cursor + run));
            cursor = (cursor + run) % format.bufferFrames;
            passed += run;
        }
    }

private:
    std::byte* at(int frame) {
        return memory.data() + static_cast<std::ptrdiff_t>(frame) * format.blockAlign();
    }

    TestSound& owner;
    const Format format;
    std::vector<std::byte> memory;
    bool playing = false;
    int cursor = 0;
    std::int64_t startTick = 0;
    std::int64_t passed = 0; ///< frames since the start
};

bool TestSound::connect(std::string&, std::string&) {
    isConnected = true;
    return true;
}

std::unique_ptr<SoundBuffer> TestSound::createBuffer(const Format& format) {
    const std::lock_guard guard{mutex};
    ++opens;
    if (refusals > 0) {
        --refusals;
        return nullptr;
    }
    formats.push_back(format);
    auto buffer = std::make_unique<Buffer>(*this, format);
    live = buffer.get();
    return buffer;
}

std::vector<TestSound::Passage> TestSound::passages() {
    const std::lock_guard guard{mutex};
    if (live) live->catchUp();
    return log;
}

void TestSound::forget() {
    const std::lock_guard guard{mutex};
    if (live) live->catchUp();
    for (Passage& passage : log) {
        passage.startTick += passage.count() * std::int64_t{10'000'000} / passage.format.rate;
        passage.frames.clear();
    }
    if (log.size() > 1) log.erase(log.begin(), log.end() - 1);
}

} // namespace velorine::test
