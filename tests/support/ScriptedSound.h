#pragma once

#include "output/SoundSystem.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velorine::test {

/// A sound system that answers as a test tells it and writes down what is asked of it. Its play
/// cursor stands where the test puts it. One thread at a time.
class ScriptedSound final : public SoundSystem {
public:
    using Result = SoundBuffer::Result;

    std::vector<Device> devices() override { return {{"First", ""}, {"Second", "{2}"}}; }
    bool connected() const override { return isConnected; }
    bool connect(std::string& description, std::string& guid) override {
        calls.push_back("connect " + description);
        if (connectFailures > 0) {
            --connectFailures;
            return false;
        }
        if (unknownDevice) description = guid = "";
        if (onConnect) onConnect();
        return isConnected = true;
    }
    void disconnect() override {
        calls.emplace_back("disconnect");
        isConnected = false;
    }
    std::unique_ptr<SoundBuffer> createBuffer(const Format& format) override {
        calls.emplace_back("create");
        formats.push_back(format);
        if (refusals > 0) {
            --refusals;
            return nullptr;
        }
        memory.assign(static_cast<std::size_t>(format.bufferFrames) *
                          static_cast<std::size_t>(std::max(format.blockAlign(), 0)),
                      std::byte{0xAA});
        return std::make_unique<Buffer>(*this, format);
    }

    /// Places of `call` in what was asked, in order.
    int countOf(const std::string& call) const {
        return static_cast<int>(std::count(calls.begin(), calls.end(), call));
    }

    struct Lock {
        int start = 0;
        int frames = 0;
    };

    std::vector<std::string> calls;
    std::vector<Format> formats;   ///< asked for, in order
    std::vector<Lock> locks;       ///< that were granted
    std::vector<std::byte> memory; ///< of the buffer made last
    int refusals = 0;              ///< buffers that won't be created
    int connectFailures = 0;
    bool unknownDevice = false;     ///< what is connected to is the default device
    std::deque<Result> lockResults; ///< of the next locks; ok when there are none
    std::deque<Result> playResults;
    bool cursorReadable = true;
    int cursor = 0;
    bool playing = false;
    int volume = 1;
    int pan = 1;
    int firm = 0;
    bool restores = true;
    std::function<void()> onConnect;

private:
    class Buffer final : public SoundBuffer {
    public:
        Buffer(ScriptedSound& sound, const Format& wanted) : owner(sound), format(wanted) {}
        ~Buffer() override { owner.calls.emplace_back("release"); }

        Result lock(int startFrame, int frames, Regions& regions) override {
            const Result result = next(owner.lockResults);
            if (result != Result::ok) return result;
            owner.locks.push_back({startFrame, frames});
            const int first = std::min(frames, format.bufferFrames - startFrame);
            regions = {owner.memory.data() + at(startFrame), first,
                       frames > first ? owner.memory.data() : nullptr, frames - first};
            return Result::ok;
        }
        void unlock(const Regions&) override { owner.calls.emplace_back("unlock"); }
        bool playCursor(int& frame) override {
            owner.calls.emplace_back("cursor");
            frame = owner.cursor;
            return owner.cursorReadable;
        }
        Result play() override {
            owner.calls.emplace_back("play");
            const Result result = next(owner.playResults);
            owner.playing = result == Result::ok;
            return result;
        }
        void stop() override {
            owner.calls.emplace_back("stop");
            owner.playing = false;
        }
        void setPosition(int frame) override {
            owner.calls.push_back("position " + std::to_string(frame));
            owner.cursor = frame;
        }
        void setVolume(int hundredthsDb) override {
            owner.calls.push_back("volume " + std::to_string(hundredthsDb));
            owner.volume = hundredthsDb;
        }
        void setPan(int hundredthsDb) override {
            owner.calls.push_back("pan " + std::to_string(hundredthsDb));
            owner.pan = hundredthsDb;
        }
        bool restore() override {
            owner.calls.emplace_back("restore");
            return owner.restores;
        }
        int firmFrames() override { return owner.firm; }

    private:
        std::ptrdiff_t at(int frame) const {
            return static_cast<std::ptrdiff_t>(frame) * format.blockAlign();
        }
        static Result next(std::deque<Result>& results) {
            if (results.empty()) return Result::ok;
            const Result result = results.front();
            results.pop_front();
            return result;
        }

        ScriptedSound& owner;
        const Format format;
    };

    bool isConnected = false;
};

} // namespace velorine::test
