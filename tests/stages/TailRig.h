#pragma once

#include "chain/RingAppend.h"
#include "foundation/EntropySource.h"
#include "stages/TailStage.h"
#include "tests/support/Blocks.h"
#include "tests/support/FakeFxClock.h"

#include <random>

namespace velorine::test {

/// Seeds every generator that is made in its lifetime.
class FixedEntropy final : public EntropySource {
public:
    explicit FixedEntropy(std::uint32_t seed) : value(seed) { EntropySource::install(this); }
    ~FixedEntropy() override { EntropySource::install(nullptr); }
    std::uint32_t seed() override { return value; }

private:
    const std::uint32_t value;
};

/// Triangular dither, from the standard library's generator.
class ModelDither {
public:
    explicit ModelDither(std::uint32_t seed) : random(seed) {}
    double next() {
        const double a = static_cast<double>(random()) / 4294967296.0;
        const double b = static_cast<double>(random()) / 4294967296.0;
        return a - b;
    }

private:
    std::mt19937 random;
};

/// A tail stage behind a ring that a test fills.
struct TailRig {
    TailRig() { stage.clock = &clock; }

    bool process(int maxFrames = 1152) {
        out = {};
        stage.standing = false;
        return stage.process(arena, out, ring, maxFrames);
    }

    static constexpr std::uint32_t seed = 0xC0FFEE;

    FixedEntropy entropy{seed};
    FakeFxClock clock;
    FxArena arena;
    FxRing ring;
    TailStage stage;
    FxBlock out;
};

} // namespace velorine::test
