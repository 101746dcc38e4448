#include "stages/convert/NoiseShaper.h"

#include "foundation/Rounding.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numbers>

namespace velorine {

namespace {

constexpr std::array prototype = {
    -0.0167203f, -0.0168077f, -0.018923f,  -0.0138239f, -0.0190871f, -0.0160343f, -0.0122668f,
    -0.0228401f, -0.0072896f, -0.0185747f, -0.0201004f, 0.0020453f,  -0.0355913f, 0.0028466f,
    -0.0094266f, -0.0450175f, 0.0421644f,  -0.065048f,  0.0053122f,  0.0392093f,  -0.1361076f,
    0.1383153f,  -0.1068104f, -0.0529483f, 0.2229419f,  -0.401217f,  0.3287556f,  -0.0971337f,
    -0.3388205f, 0.8052982f,  -1.1006814f, 0.6898958f,  0.1321115f,  -1.3603216f, 2.8353257f,
    -3.9421513f, 3.8533005f,  -3.3612297f, 2.4007559f};

constexpr double tapUnit = 4096.0;
constexpr double errorUnit = 16384.0;
constexpr double feedbackUnit = 1.0 / (tapUnit * errorUnit);

/// Far beyond any container, and near enough that an error stays below 1.54 LSB: the filter's sum
/// then fits in 32 bits.
constexpr double largestInput = 0x1p48;

/// The block form covers samples of up to 2^24 LSB.
constexpr double blockLimit = 0x1p24;

constexpr int blockFrames = 4;
constexpr int apartFrames = 128; ///< at a time, where the two channels don't lie side by side

/// The block form's window in a ring: the newest error isn't in the ring yet.
constexpr int newest = ShaperTables::window - 1;
constexpr int oldestInWindow = ShaperTaps::taps - ShaperTables::window;

ShapedRun part(const ShapedRun& run, int start, int frames) {
    const int skipped = start * run.channels;
    return {run.x + skipped, run.dither + skipped, run.to + skipped, frames, run.channels};
}

/// Tap for the error `age` samples back; 1 is the newest.
std::int16_t tapOf(const ShaperTaps& taps, int age) {
    if (age < 1 || age > ShaperTaps::taps) return 0;
    return taps.coefInt[static_cast<std::size_t>(ShaperTaps::taps - age)];
}

ShaperTables arrange(const ShaperTaps& taps) {
    constexpr int behind = ShaperTables::behind;
    for (int age = behind + blockFrames + 1; age <= ShaperTaps::taps; ++age)
        assert(tapOf(taps, age) == 0); // the window closes there

    ShaperTables tables{};
    for (int channel = 0; channel < 2; ++channel) {
        for (int frame = 0; frame < blockFrames; ++frame) {
            for (int error = 0; error < behind; ++error)
                tables.past[frame][error / 8][channel * 8 + error % 8] =
                    tapOf(taps, behind - error + blockFrames + frame);
            const int lane = 2 * (channel * blockFrames + frame);
            for (int error = 0; error < blockFrames; ++error)
                tables.next[error][lane] = tapOf(taps, blockFrames + frame - error);
            for (int error = 0; error + 1 < blockFrames; ++error)
                tables.within[error][lane] = tapOf(taps, frame - error);
        }
    }
    return tables;
}

std::int32_t limited(std::int64_t q, const WordLimits& limits) {
    const auto low = static_cast<std::int64_t>(limits.low);
    const auto high = static_cast<std::int64_t>(limits.high);
    const auto held = static_cast<std::int32_t>(std::clamp(q, low, high));
    return held > limits.top ? limits.cap : held << limits.shift;
}

std::int16_t& errorAt(ShaperChannel& channel, int place) {
    return channel
        .history[static_cast<std::size_t>((channel.ringPos + place) & ShaperChannel::ringMask)];
}

/// Takes in the error of the sample before and filters.
std::int32_t feedbackOf(ShaperChannel& channel, const ShaperTaps& taps, float lastError) {
    errorAt(channel, ShaperTaps::taps - 1) = errorWord(lastError);
    std::int32_t sum = 0;
    for (int i = 0; i < ShaperTaps::taps; ++i)
        sum += errorAt(channel, i) * taps.coefInt[static_cast<std::size_t>(i)];
    channel.ringPos = (channel.ringPos + 1) & ShaperChannel::ringMask;
    return sum;
}

} // namespace

ShaperTaps designShaperTaps() {
    constexpr int taps = ShaperTaps::taps;
    ShaperTaps result{};
    for (int i = 0; i < taps; ++i) {
        const double x = (taps - i) / (2.0 * taps) + 0.5;
        const double window = x < 1.0 ? 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * x) : 0.0;
        const auto tap = static_cast<std::size_t>(i);
        const auto coefficient = static_cast<double>(prototype[prototype.size() - taps + tap]);
        result.coefFloat[tap] = static_cast<float>(coefficient * window);
        result.coefInt[tap] = static_cast<std::int16_t>(
            roundToEven(static_cast<double>(result.coefFloat[tap]) * tapUnit));
    }
    return result;
}

ShapedSample shapeSample(double x, std::int32_t feedback, double dither) {
    if (std::isnan(x)) x = 0.0;
    x = std::clamp(x, -largestInput, largestInput) + feedback * feedbackUnit;
    const std::int64_t q = roundToEven(x + dither);
    return {q, static_cast<float>(x - static_cast<double>(q))};
}

std::int16_t errorWord(float error) {
    return static_cast<std::int16_t>(roundToEven(static_cast<double>(error) * errorUnit));
}

NoiseShaper::NoiseShaper() : taps(designShaperTaps()), tables(arrange(taps)) {}

void NoiseShaper::shape(const ConvertKernels& kernels, const ShapedRun& run,
                        const WordLimits& limits) {
    if (run.frames <= 0 || run.channels <= 0) return;
    assert(run.channels <= maxShapedChannels);

    if (!shaperActive) {
        // Nothing feeds back: of all errors only those of the last frame are ever looked at.
        const ShapedRun last = part(run, run.frames - 1, 1);
        kernels.quantise(run.x, run.dither, static_cast<int>(last.x - run.x), limits, run.to);
        shapeEach(last, 0, limits);
    } else if (kernels.shapePair == nullptr || limits.high > blockLimit) {
        shapeEach(run, 0, limits);
    } else if (run.channels == 2) {
        shapeTwo(kernels.shapePair, run, 0, limits);
    } else {
        shapeApart(kernels.shapePair, run, limits);
    }
}

void NoiseShaper::shapeEach(const ShapedRun& run, std::size_t first, const WordLimits& limits) {
    const std::size_t end = first + static_cast<std::size_t>(run.channels);
    std::size_t i = 0;
    for (int frame = 0; frame < run.frames; ++frame) {
        for (std::size_t c = first; c < end; ++c, ++i) {
            const std::int32_t feedback =
                shaperActive ? feedbackOf(channels[c], taps, lastError[c]) : 0;
            const ShapedSample sample = shapeSample(run.x[i], feedback, run.dither[i]);
            lastError[c] = sample.error;
            run.to[i] = limited(sample.q, limits);
        }
    }
}

void NoiseShaper::shapeTwo(ShapePair kernel, ShapedRun run, std::size_t first,
                           const WordLimits& limits) {
    while (run.frames >= blockFrames) {
        ShapedPair pair{};
        load(pair, first);
        const int blocks = run.frames - run.frames % blockFrames;
        const int done = kernel(tables, run.x, run.dither, blocks, limits, pair, run.to);
        if (done > 0) store(pair, part(run, 0, done), first);
        run = part(run, done, run.frames - done);
        if (done == blocks) break;

        // A block with samples that only the plain form can take.
        shapeEach(part(run, 0, blockFrames), first, limits);
        run = part(run, blockFrames, run.frames - blockFrames);
    }
    shapeEach(run, first, limits);
}

void NoiseShaper::shapeApart(ShapePair kernel, const ShapedRun& run, const WordLimits& limits) {
    const auto width = static_cast<std::size_t>(run.channels);
    for (int start = 0; start < run.frames; start += apartFrames) {
        const ShapedRun now = part(run, start, std::min(apartFrames, run.frames - start));
        for (std::size_t first = 0; first < width; first += 2) {
            std::array<double, 2 * apartFrames> x{};
            std::array<double, 2 * apartFrames> dither{};
            std::array<std::int32_t, 2 * apartFrames> to;
            const std::size_t count = std::min<std::size_t>(2, width - first);
            for (std::size_t frame = 0; frame < static_cast<std::size_t>(now.frames); ++frame) {
                for (std::size_t c = 0; c < count; ++c) {
                    x[2 * frame + c] = now.x[frame * width + first + c];
                    dither[2 * frame + c] = now.dither[frame * width + first + c];
                }
            }

            // An odd channel goes with silence in the place of the next one, which stays as it was.
            const std::size_t second = first + 1;
            const ShaperChannel kept = channels[second];
            const float keptError = lastError[second];
            shapeTwo(kernel, {x.data(), dither.data(), to.data(), now.frames, 2}, first, limits);
            if (count == 1) {
                channels[second] = kept;
                lastError[second] = keptError;
            }

            for (std::size_t frame = 0; frame < static_cast<std::size_t>(now.frames); ++frame)
                for (std::size_t c = 0; c < count; ++c)
                    now.to[frame * width + first + c] = to[2 * frame + c];
        }
    }
}

void NoiseShaper::load(ShapedPair& pair, std::size_t first) {
    for (std::size_t c = 0; c < 2; ++c) {
        for (int i = 0; i < newest; ++i)
            pair.errors[c][i] = errorAt(channels[first + c], oldestInWindow + i);
        pair.errors[c][newest] = errorWord(lastError[first + c]);
    }
}

void NoiseShaper::store(const ShapedPair& pair, const ShapedRun& done, std::size_t first) {
    const ShapedRun last = part(done, done.frames - 1, 1);
    for (std::size_t c = 0; c < 2; ++c) {
        ShaperChannel& channel = channels[first + c];
        channel.ringPos = (channel.ringPos + done.frames) & ShaperChannel::ringMask;
        for (int i = 0; i < newest; ++i)
            errorAt(channel, oldestInWindow + i) = pair.errors[c][i];
        lastError[first + c] = shapeSample(last.x[c], pair.feedback[c], last.dither[c]).error;
    }
}

} // namespace velorine
