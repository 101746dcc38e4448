#include "tests/convert/ConvertSupport.h"

namespace velorine {

namespace {

template <typename T>
Bytes noiseFloats(int samples, std::mt19937& random) {
    std::vector<T> values;
    for (int i = 0; i < samples; ++i) {
        const T value = static_cast<T>(static_cast<double>(random()) * 0x1p-31 - 1.0);
        const std::uint32_t kind = random() % 32;
        if (kind == 0)
            values.push_back(value < T{0} ? T{-1} : T{1});
        else if (kind == 1)
            values.push_back(T{0});
        else
            values.push_back(value * (kind < 8 ? static_cast<T>(1.3) : T{1}));
    }
    return bytesOf(values);
}

} // namespace

Bytes convertBytes(SampleConverter& converter, const Bytes& source, const SampleFormat& from,
                   const SampleFormat& to, std::uint8_t fill) {
    const int frames = static_cast<int>(source.size()) / bytesPerFrame(from);
    Bytes result(static_cast<std::size_t>(frames * bytesPerFrame(to)), fill);
    converter.convert({source.data(), frames, bytesPerFrame(from)}, from,
                      {result.data(), frames, bytesPerFrame(to)}, to);
    return result;
}

Bytes noiseBytes(int type, int samples, std::uint32_t seed) {
    std::mt19937 random{seed};
    if (type == sampleType::float32) return noiseFloats<float>(samples, random);
    if (type == sampleType::float64) return noiseFloats<double>(samples, random);

    Bytes bytes(static_cast<std::size_t>(samples * bytesPerSample(type)));
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

} // namespace velorine
