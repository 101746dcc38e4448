#include "tests/kestrix/KestrixModel.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

namespace velorine::test {

namespace {

constexpr double pi = std::numbers::pi;

double hannAt(double t) {
    return t <= 0.0 || t >= 1.0 ? 0.0 : 0.5 * (1.0 - std::cos(2.0 * pi * t));
}

double db(double level) {
    return 20.0 * std::log10(level);
}

double level(double decibels) {
    return std::pow(10.0, decibels / 20.0);
}

/// Mean over `[k, k + 1)` of a curve that is straight between the points `(x, y)`.
struct Point {
    double x;
    double y;
};

double meanOf(const std::vector<Point>& points, int k) {
    double sum = 0.0;
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
        const Point& a = points[i];
        const Point& b = points[i + 1];
        const double from = std::max<double>(k, a.x);
        const double to = std::min<double>(k + 1, b.x);
        if (to <= from) continue;
        const auto at = [&](double x) { return a.y + (b.y - a.y) * (x - a.x) / (b.x - a.x); };
        sum += (to - from) * (at(from) + at(to)) / 2.0;
    }
    return sum;
}

/// The same in single precision, line by line, as the curves are kept: over thousands of bins a
/// phase shows the rounding of a delay.
float meanInSingle(const std::vector<Point>& points, int k) {
    float sum = 0.0F;
    const auto bin = static_cast<float>(k);
    const auto add = [&](float x0, float x1, float y0, float y1) {
        if (x1 <= bin || x0 >= bin + 1.0F || x1 <= x0) return;
        const float slope = (y1 - y0) / (x1 - x0);
        if (x0 >= bin && x1 < bin + 1.0F) {
            sum += (x1 - x0) * (y0 + y1) * 0.5F;
        } else if (x0 >= bin) {
            const float d = bin + (1.0F - x0);
            sum += (d * slope + y0 + y0) * d * 0.5F;
        } else if (x1 < bin + 1.0F) {
            const float d = x1 - bin;
            sum += d * 0.5F * (y1 + y1 - d * slope);
        } else {
            sum += (bin + 0.5F - x0) * slope + y0;
        }
    };
    // A triangle for each node: one line up to it, one line down.
    const std::size_t last = points.size() - 1;
    for (std::size_t i = 0; i < last; ++i) {
        const auto x0 = static_cast<float>(points[i].x);
        const auto x1 = static_cast<float>(points[i + 1].x);
        add(x0, x1, static_cast<float>(points[i].y), 0.0F);
        add(x0, x1, 0.0F, static_cast<float>(points[i + 1].y));
    }
    return sum;
}

constexpr double nodeHz[eqNodes] = {20,   35,   50,   60,    75,    100,   135,  180,
                                    250,  375,  500,  750,   1000,  1500,  2000, 3000,
                                    4000, 6000, 8000, 12000, 15000, 18000, 20000};

int roundedToFour(double frames) {
    return static_cast<int>(std::nearbyint(frames)) / 4 * 4;
}

} // namespace

void transform(std::vector<std::complex<double>>& values, int sign) {
    const std::size_t n = values.size();
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n / 2;
        for (; j & bit; bit /= 2)
            j ^= bit;
        j ^= bit;
        if (i < j) std::swap(values[i], values[j]);
    }
    for (std::size_t length = 2; length <= n; length *= 2) {
        std::vector<std::complex<double>> twiddle(length / 2);
        for (std::size_t i = 0; i < length / 2; ++i)
            twiddle[i] = std::polar(1.0, sign * 2.0 * pi * static_cast<double>(i) /
                                             static_cast<double>(length));
        for (std::size_t start = 0; start < n; start += length)
            for (std::size_t i = 0; i < length / 2; ++i) {
                const auto a = values[start + i];
                const auto b = values[start + i + length / 2];
                const std::complex<double> turned{
                    b.real() * twiddle[i].real() - b.imag() * twiddle[i].imag(),
                    b.real() * twiddle[i].imag() + b.imag() * twiddle[i].real()};
                values[start + i] = a + turned;
                values[start + i + length / 2] = a - turned;
            }
    }
}

KestrixModel::KestrixModel(const KestrixParameters& wanted, double hz)
    : settings(wanted), rate(hz), amount(wanted.magnitude) {
    frameLen = roundedToFour(0.045 * rate);
    const int pad = roundedToFour(0.040 * rate);
    for (fftLen = 1; fftLen < frameLen + pad; fftLen *= 2) {
    }
    padLen = fftLen - frameLen;
    hop = frameLen / 2;
    design();
}

void KestrixModel::design() {
    const int half = fftLen / 2;
    // Places on the axis are singles by definition; all that is worked out from them is not.
    const float binsPerHz = static_cast<float>(fftLen) / static_cast<float>(rate);
    const auto placeOf = [&](double hz) -> double {
        return static_cast<double>(static_cast<float>(hz) * binsPerHz);
    };

    std::vector<Point> gains;
    std::vector<Point> delays;
    const auto addNode = [&](double hz, int node) {
        const double delay = node % 2 == 0
                                 ? settings.del[node / 2]
                                 : (settings.del[node / 2] + settings.del[node / 2 + 1]) / 2.0;
        gains.push_back({placeOf(hz), 1.0 + (settings.eq[node] * settings.eqall - 1.0) * amount});
        delays.push_back({placeOf(hz), delay * amount});
    };
    addNode(0.0, 0);
    for (int node = 0; node < eqNodes; ++node)
        addNode(nodeHz[node], node);
    addNode(192000.0, eqNodes - 1);
    eqCurve.resize(static_cast<std::size_t>(half) + 1);
    std::vector<double> delayCurve(eqCurve.size());
    for (int k = 0; k <= half; ++k) {
        eqCurve[static_cast<std::size_t>(k)] = meanOf(gains, k);
        delayCurve[static_cast<std::size_t>(k)] = static_cast<double>(meanInSingle(delays, k));
    }

    const double headroom = level(-settings.headroom);
    for (int b = 0; b < kestrixBands; ++b) {
        std::vector<Point> shape;
        if (b > 0) {
            shape.push_back({placeOf(settings.band[b - 1].high), 0.0});
            shape.push_back({placeOf(settings.band[b].low), 1.0});
        } else {
            shape.push_back({0.0, 1.0});
        }
        if (b + 1 < kestrixBands) {
            shape.push_back({placeOf(settings.band[b].high), 1.0});
            shape.push_back({placeOf(settings.band[b + 1].low), 0.0});
        } else {
            shape.push_back({placeOf(192000.0), 1.0});
        }
        std::vector<double> weight;
        Spectrum impulse(static_cast<std::size_t>(fftLen));
        for (int k = 0; k <= half; ++k) {
            weight.push_back(meanOf(shape, k));
            const auto at = static_cast<std::size_t>(k);
            const double turn = -2.0 * pi * k * delayCurve[at] * rate / fftLen;
            const auto value =
                std::polar(eqCurve[at] * headroom * weight.back() / fftLen / fftLen, turn);
            impulse[at] = value;
            if (k > 0 && k < half) impulse[static_cast<std::size_t>(fftLen - k)] = std::conj(value);
        }
        impulse[0].imag(0.0); // a transform to real numbers doesn't see these two
        impulse[static_cast<std::size_t>(half)].imag(0.0);
        transform(impulse, +1);
        for (int i = 0; i < fftLen; ++i) {
            const int j = i < half ? i : i - fftLen;
            const int room = padLen / 2;
            auto& value = impulse[static_cast<std::size_t>(i)];
            value = value.real() * hannAt(0.5 * j / room + 0.5);
        }
        transform(impulse, -1);
        filters.push_back(impulse);
        weights.push_back(weight);
        limitToAudible(b);
    }
}

void KestrixModel::limitToAudible(int b) {
    const Spectrum& filter = filters[static_cast<std::size_t>(b)];
    const double threshold = std::pow(1e-5 / fftLen, 2.0);
    int first = -1;
    int last = -2;
    for (int k = 0; k <= fftLen / 2; ++k) {
        double power = std::norm(filter[static_cast<std::size_t>(k)]);
        if (k > 0) power += std::norm(filter[static_cast<std::size_t>(fftLen - k)]);
        if (power < threshold) continue;
        if (first < 0) first = k;
        last = k;
    }
    ranges.emplace_back(std::max(first - 1, 0), std::min(last + 1, fftLen / 2) + 1);
}

std::vector<double> KestrixModel::process(const std::vector<float>& pairs) {
    tail.assign(static_cast<std::size_t>(fftLen), {});
    std::vector<double> out;
    const long frames = static_cast<long>(pairs.size() / 2);
    const long first = fftLen / 2;
    for (long start = first - (fftLen - 1 + hop) / hop * hop; start + frameLen <= frames;
         start += hop) {
        runFrame(pairs, start);
        if (start >= first) {
            for (int i = 0; i < hop; ++i) {
                const auto& value = tail[static_cast<std::size_t>(i)];
                double left = value.real();
                double right = value.imag();
                const double peak = std::max(std::abs(left), std::abs(right));
                if (settings.softclip && peak > 0.0) {
                    const double factor = softClip(peak) / peak;
                    left *= factor;
                    right *= factor;
                }
                out.push_back(left);
                out.push_back(right);
            }
        }
        tail.erase(tail.begin(), tail.begin() + hop);
        tail.resize(static_cast<std::size_t>(fftLen));
    }
    return out;
}

void KestrixModel::runFrame(const std::vector<float>& pairs, long start) {
    Spectrum values(static_cast<std::size_t>(fftLen));
    for (int i = 0; i < frameLen; ++i) {
        const long at = start + i;
        if (at < 0) continue;
        const double w = hannAt(static_cast<double>(i) / frameLen);
        const auto sample = static_cast<std::size_t>(at) * 2;
        values[static_cast<std::size_t>(fftLen / 2 - frameLen / 2 + i)] = {
            w * static_cast<double>(pairs[sample]), w * static_cast<double>(pairs[sample + 1])};
    }
    transform(values, -1);
    weigh(values);
    transform(values, +1);
    for (int i = 0; i < fftLen; ++i)
        tail[static_cast<std::size_t>(i)] += values[static_cast<std::size_t>(i)];
}

void KestrixModel::weigh(Spectrum& spectrum) {
    // Power of a Hann window of this length: a sine's squares in the spectrum sum to 3/16 of
    // fftLen * frameLen for each unit of its amplitude squared and side.
    const double powerScale = (2.0 / 5.0 * 8192.0 / 614.3998306681) * 0.5 / fftLen / frameLen;
    for (int b = 0; b < kestrixBands; ++b) {
        double energy = 0.0;
        for (int k = 1; k < fftLen / 2; ++k) {
            const auto a = spectrum[static_cast<std::size_t>(k)];
            const auto m = std::conj(spectrum[static_cast<std::size_t>(fftLen - k)]);
            const auto left = (a + m) / 2.0;
            const auto right = (a - m) / 2.0;
            energy += 2.0 * (std::norm(left) + std::norm(right)) * powerScale *
                      weights[static_cast<std::size_t>(b)][static_cast<std::size_t>(k)];
        }
        const double now = std::sqrt(energy);
        const double release = std::pow(0.9, 2.25);
        fast[b] = now > fast[b] ? now : release * fast[b] + (1.0 - release) * now;
    }
    followSlow();
    Spectrum result(spectrum.size());
    for (int b = 0; b < kestrixBands; ++b) {
        const double headroom = level(-settings.headroom);
        double gain = 1.0;
        if (fast[b] * headroom > 1e-10) gain = law(b) / headroom / fast[b];
        if (!settings.bandEnabled[b]) gain = 0.0;
        const auto [low, high] = ranges[static_cast<std::size_t>(b)];
        const Spectrum& filter = filters[static_cast<std::size_t>(b)];
        const auto add = [&](int k) {
            const auto at = static_cast<std::size_t>(k);
            result[at] += gain * filter[at] * spectrum[at];
        };
        for (int k = low; k < high; ++k)
            add(k);
        for (int k = std::max(fftLen / 2 + 1, fftLen - high - 1);
             k < std::min(fftLen, fftLen - low + 1); ++k)
            add(k);
    }
    followSlow();
    spectrum = result;
}

double KestrixModel::law(int b) const {
    const double x = fast[b] * level(-settings.headroom);
    if (x <= 1e-10) return x;
    const double v = db(x) + 3.0;
    const double slope = 1.0 - std::min(1.0, settings.compr[7] + settings.compr[b]) * amount;
    const double corner = 3.0 + settings.comprlim[7] - settings.headroom + settings.comprlim[b];
    const double w = v > corner ? slope * v : slope * corner + v - corner;
    double y = level(w - 3.0) * level((settings.atten[7] + settings.atten[b]) * amount);
    if (y <= 1e-10) return y;
    if (settings.enabletrans) {
        const double steep = 6.0 * settings.trans[b].sensitivity;
        const double excess = 1.0 - std::pow(slow[b], steep) / std::pow(fast[b], steep);
        if (excess > 0.0) y *= 1.0 + 6.4 * excess * settings.trans[b].amount * amount;
    }
    const double limit = settings.lim[7] + settings.lim[b];
    double u = db(y);
    if (u > limit - 0.5) {
        const double t = (u + 0.5 - limit) / 0.5;
        u = limit - 0.5 + 0.5 * (t < 2.0 ? t - t * t / 4.0 : 1.0);
    }
    return level(u);
}

void KestrixModel::followSlow() {
    for (int b = 0; b < kestrixBands; ++b) {
        const double c = std::pow(0.95 * settings.trans[b].length, 45.0 / 85.0);
        const double keep = fast[b] >= slow[b] ? std::sqrt(c) : c;
        slow[b] = keep * slow[b] + (1.0 - keep) * fast[b];
    }
}

double KestrixModel::softClip(double peak) {
    const double in = db(peak);
    if (in <= -3.0) return peak;
    if (in >= 3.0) return 1.0;
    const double t = (in + 3.0) / 3.0;
    return level(-3.0 + 3.0 * (t - t * t / 4.0));
}

} // namespace velorine::test
