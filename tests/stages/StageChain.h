#pragma once

#include "chain/FxChainEntry.h"
#include "chain/HostInputStage.h"
#include "chain/RingAppend.h"
#include "chain/RingSearch.h"
#include "stages/TailStage.h"
#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

namespace velorine::test {

/// One frame as a stage delivered it.
struct DeliveredFrame {
    int type = 0;
    int channels = 0;
    int rate = 0;
    std::array<std::byte, 64> bytes{}; ///< of all channels; 0 behind them

    template <typename Sample>
    Sample sample(int channel) const {
        Sample value{};
        std::memcpy(&value, bytes.data() + static_cast<std::size_t>(channel) * sizeof value,
                    sizeof value);
        return value;
    }
    friend bool operator==(const DeliveredFrame&, const DeliveredFrame&) = default;
};

/// A chain of host input, one stage and tail, pumped and cut as the driver does it, with the rings
/// in the test's hands.
template <typename Stage>
class StageChain {
public:
    template <typename... Arguments>
    explicit StageChain(Arguments&&... arguments) : stage(std::forward<Arguments>(arguments)...) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            entries[i].stage->inRing = i > 0 ? entries[i - 1].ring : nullptr;
            entries[i].stage->outRing = entries[i].ring;
            entries[i].stage->arena = &input.arenaStore;
        }
    }

    /// Appends one block of the host's, for as long as its frames last.
    template <typename Sample>
    void write(const SampleFormat& format, const std::vector<Sample>& samples) {
        const auto bytes = static_cast<std::int64_t>(samples.size() * sizeof(Sample));
        const std::int64_t frames = bytes / bytesPerFrame(format);
        const FxTime begin = input.hostRing.empty() ? 0 : input.hostRing.newest().timeEnd;
        input.append(format, samples.data(), bytes, begin,
                     begin + frames * ticksPerSecond / format.rate);
    }

    /// The same in blocks of 1 to `most` frames.
    template <typename Sample>
    void writeInPieces(const SampleFormat& format, const std::vector<Sample>& samples,
                       std::mt19937& random, int most = 3000) {
        const auto frameSamples = static_cast<std::size_t>(bytesPerFrame(format)) / sizeof(Sample);
        for (std::size_t at = 0; at < samples.size();) {
            const std::size_t frames = 1 + random() % static_cast<unsigned>(most);
            const std::size_t end = std::min(at + frames * frameSamples, samples.size());
            write(format, std::vector<Sample>(samples.begin() + static_cast<std::ptrdiff_t>(at),
                                              samples.begin() + static_cast<std::ptrdiff_t>(end)));
            at = end;
        }
    }

    /// One step: the nearest stage that has something, and forward from there.
    bool pump() {
        int index = 2;
        while (index >= 0 && !runStage(index))
            --index;
        if (index < 0) return false;
        for (++index; index < 3; ++index)
            if (!runStage(index)) break;
        return true;
    }

    void pumpAll() {
        while (pump()) {
        }
    }

    /// Pumps until the tail's ring ends at `frame` or behind it, or there is nothing more.
    void pumpTo(std::int64_t frame) {
        while (rings[2].end() < frame && pump()) {
        }
    }

    /// Cuts everything behind the tail's frame `frame`, or as near behind it as the stages allow.
    void rewindTo(std::int64_t frame) {
        int delta = static_cast<int>(std::min<std::int64_t>(frame - rings[2].end(), 0));
        for (int index = 2;; --index) {
            FxStage& at = *entries[static_cast<std::size_t>(index)].stage;
            FxRing& ring = rings[static_cast<std::size_t>(index)];
            delta = std::min(at.alignRewind(delta, sourceAt(ring, ring.end() + delta)), 0);
            const FxPos pos = sourceAt(ring, ring.end() + delta);
            const std::int64_t inputEnd = index > 0 ? at.inputEndFor(delta, pos) : 0;
            ring.truncate(ring.end() + delta);
            at.seek(delta, pos);
            if (index == 1) delivered.resize(static_cast<std::size_t>(ring.end()));
            if (index == 0) return;
            const FxRing& before = rings[static_cast<std::size_t>(index - 1)];
            delta = static_cast<int>(std::min<std::int64_t>(inputEnd - before.end(), 0));
        }
    }

    /// Drops what the speakers have passed.
    void trim(std::int64_t played) {
        std::int64_t frame = played;
        for (std::size_t i = 3; i-- > 0;) {
            FxRing& ring = rings[i];
            const auto delta = static_cast<int>(frame - ring.end());
            const std::int64_t needed =
                entries[i].stage->inputStartFor(delta, sourceAt(ring, frame));
            while (ring.count() > 2 && ring.oldest().posEnd <= frame)
                ring.pop();
            frame = needed;
        }
    }

    /// Pumps everything, with `rewinds` rewinds at random points on the way, each by less than
    /// `depth` frames.
    void pumpWithRewinds(std::mt19937& random, int rewinds, int depth, std::int64_t expected) {
        for (int i = 0; i < rewinds; ++i) {
            const std::int64_t reached = expected * (i + 1) / (rewinds + 1);
            pumpTo(reached);
            const auto back = static_cast<int>(random() % static_cast<unsigned>(depth));
            const std::int64_t target = std::max<std::int64_t>(rings[2].end() - back, 0);
            trim(std::max<std::int64_t>(target - depth, 0));
            rewindTo(target);
        }
        pumpAll();
    }

    /// Samples of one channel of everything that the stage delivered.
    template <typename Sample>
    std::vector<Sample> channel(int index) const {
        std::vector<Sample> samples;
        samples.reserve(delivered.size());
        for (const DeliveredFrame& frame : delivered)
            samples.push_back(frame.template sample<Sample>(index));
        return samples;
    }

    HostInputStage input;
    Stage stage;
    TailStage tail;
    std::array<FxRing, 3> rings;
    std::vector<DeliveredFrame> delivered; ///< by the stage; a rewind cuts it
    std::vector<int> blockFrames;          ///< of each block that the stage delivered
    FxBlock last;                          ///< that the stage delivered

private:
    bool runStage(int index) {
        FxBlock block;
        FxStage& at = *entries[static_cast<std::size_t>(index)].stage;
        FxRing& in = index > 0 ? rings[static_cast<std::size_t>(index - 1)] : noInput;
        if (!at.process(input.arenaStore, block, in, 1152)) return false;
        FxRing& ring = rings[static_cast<std::size_t>(index)];
        commitTo(ring, std::move(block));
        if (index == 1) keep(ring.newest());
        return true;
    }

    void keep(const FxBlock& block) {
        last = block;
        blockFrames.push_back(block.frames());
        const auto frameBytes = static_cast<std::size_t>(bytesPerFrame(block.format));
        for (int i = 0; i < block.frames(); ++i) {
            DeliveredFrame frame{block.format.type, block.format.channels, block.format.rate, {}};
            std::memcpy(frame.bytes.data(), block.data() + static_cast<std::size_t>(i) * frameBytes,
                        frameBytes);
            delivered.push_back(frame);
        }
    }

    std::array<FxChainEntry, 3> entries{FxChainEntry{&input, &rings[0]},
                                        FxChainEntry{&stage, &rings[1]},
                                        FxChainEntry{&tail, &rings[2]}};
    FxRing noInput;
};

/// Any bytes as samples of `type`: noise at all levels, in floats between -2 and 2.
inline std::vector<std::byte> noiseBytes(int type, int samples, std::mt19937& random) {
    std::vector<std::byte> bytes;
    const auto put = [&](const auto& value) {
        const auto* const raw = reinterpret_cast<const std::byte*>(&value);
        bytes.insert(bytes.end(), raw, raw + sizeof value);
    };
    for (int i = 0; i < samples; ++i) {
        const auto word = static_cast<std::int32_t>(random());
        switch (type) {
        case sampleType::float32:
            put(static_cast<float>(word) * 0x1p-30F);
            break;
        case sampleType::float64:
            put(word * 0x1p-30);
            break;
        default: {
            std::array<std::byte, 4> raw{};
            std::memcpy(raw.data(), &word, sizeof word);
            bytes.insert(bytes.end(), raw.begin(), raw.begin() + bytesPerSample(type));
        }
        }
    }
    return bytes;
}

/// Expects the stage to hand on everything as it is, by reference and block for block.
template <typename Stage>
void expectPassesOn(StageChain<Stage>& chain) {
    std::mt19937 random{3};
    std::vector<DeliveredFrame> written;
    for (int turn = 0; turn < 40; ++turn) {
        const int type = static_cast<int>(random() % 7);
        const SampleFormat format = formatOf(type, 1 + static_cast<int>(random() % 6), 44100);
        const int frames = 1 + static_cast<int>(random() % 2000);
        chain.write(format, noiseBytes(type, frames * format.channels, random));
    }
    chain.pumpAll();
    chain.rewindTo(chain.rings[2].end() / 2 + 17); // inside a block
    chain.pumpAll();
    const FxRing& host = chain.input.hostRing;
    ASSERT_EQ(chain.rings[1].end(), host.end());
    std::size_t at = 0;
    for (int i = 0; i < host.count(); ++i) {
        const FxBlock& block = host.at(i);
        const auto bytes = static_cast<std::size_t>(bytesPerFrame(block.format));
        for (int frame = 0; frame < block.frames(); ++frame, ++at) {
            const DeliveredFrame& heard = chain.delivered.at(at);
            ASSERT_EQ(std::tie(heard.type, heard.channels, heard.rate),
                      std::tie(block.format.type, block.format.channels, block.format.rate));
            ASSERT_EQ(std::memcmp(heard.bytes.data(),
                                  block.data() + static_cast<std::size_t>(frame) * bytes, bytes),
                      0)
                << "block " << i << ", frame " << frame;
        }
    }
    EXPECT_EQ(at, chain.delivered.size());
    EXPECT_EQ(chain.rings[1].newest().buffer.get(), host.newest().buffer.get());
}

} // namespace velorine::test
