#include "config/KeyTable.h"

#include <array>
#include <bit>

namespace velorine {

namespace {

using namespace std::string_literals;

constexpr std::uint32_t bitsOf(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

SettingKey boolean(std::string section, std::string name, bool value, std::string meaning) {
    return {std::move(section), std::move(name), SettingKind::boolean, value ? 1U : 0U,
            std::move(meaning)};
}

SettingKey integer(std::string section, std::string name, std::int32_t value, std::string meaning) {
    return {std::move(section), std::move(name), SettingKind::integer,
            static_cast<std::uint32_t>(value), std::move(meaning)};
}

SettingKey realBits(std::string section, std::string name, std::uint32_t bits,
                    std::string meaning) {
    return {std::move(section), std::move(name), SettingKind::real, bits, std::move(meaning)};
}

SettingKey real(std::string section, std::string name, float value, std::string meaning) {
    return realBits(std::move(section), std::move(name), bitsOf(value), std::move(meaning));
}

SettingKey text(std::string section, std::string name, std::string meaning) {
    return {std::move(section), std::move(name), SettingKind::text, 0, std::move(meaning)};
}

void addPlainSections(std::vector<SettingKey>& keys) {
    for (SettingKey& key : std::array{
             boolean("General", "showwnd", true, "show the analyser window at start"),
             boolean("General", "Fade on seek", true, "crossfade on a seek"),
             boolean("General", "Fade on stop", true, "fade out on stop and close"),
             boolean("General", "Show Spectrum", true, "draw the spectrum"),
             text("General", "Audio Device", "output device; empty is the system's default"),
             boolean("General", "Null Output", false, "play to no device"),
             real("General", "Beep Volume", 0.251188643F, "level of the beep on pause, linear"),
             boolean("General", "beep", true, "beep on pause"),
             integer("General", "flush_ms", 80, "ms that still play before a change is heard"),
             text("General", "Active Preset",
                  "named preset to load at each start; empty is the factory tuning"),
             integer("Output", "bits", 1, "bits of the output; below 4 as the source has"),
             boolean("Output", "noiseshaping", false, "shape the noise of quantising"),
             integer("Output", "recordmode", 0, "above 0: record to a file instead of playing"),
             boolean("Mixer", "enable", false, "mixer on"),
             real("Mixer", "antidelay", 0.05F, "delay of the rear pair, seconds"),
             boolean("Mixer", "invertrear", false, "invert the rear pair"),
             boolean("Mixer", "fronton", true, "front pair on"),
             boolean("Mixer", "rearon", true, "rear pair on"),
             boolean("Resample", "enable", false, "resampler on"),
             real("Resample", "srate", 48000.0F, "output rate, Hz; 0 keeps the source's"),
             real("Resample", "rolloff", 0.45F, "edge of the pass band, fraction of the rate"),
             integer("Resample", "accuracy", 16,
                     "accuracy of the filter, bits; 0 takes stopband and tableup"),
             boolean("Resample", "dither", false, "dither the resampled signal"),
             real("Resample", "stopband", 222.0F, "attenuation of the stop band, dB"),
             integer("Resample", "tableup", 32, "points of the filter table per sample"),
             real("Resample", "speed", 1.0F, "tempo; pitch moves with it"),
             boolean("Limiter", "enable", true, "limiter on"),
             boolean("WaDsp", "enable", false, "DSP plug-in on"),
         })
        keys.push_back(std::move(key));
}

/// Frequencies of the equaliser's nodes, Hz; their keys start with the third one, the two lowest
/// having come last.
constexpr std::array<int, 23> nodeHz{20,   35,   50,   60,    75,    100,   135,  180,
                                     250,  375,  500,  750,   1000,  1500,  2000, 3000,
                                     4000, 6000, 8000, 12000, 15000, 18000, 20000};

/// Edges and transient enhancement of one dynamics band.
struct BandTuning {
    const char* name;
    float lowHz, highHz;
    std::array<float, 3> transient; ///< amount, sensitivity, length
};

constexpr std::array<BandTuning, 7> bands{{
    {"sub bass", 0, 50, {0.36F, 0.14F, 0.04F}},
    {"low bass", 75, 130, {0.5F, 0.08F, 0.04F}},
    {"high bass", 180, 220, {0.38F, 0.08F, 0.06F}},
    {"mid range", 250, 900, {0.48F, 0.24F, 0.04F}},
    {"low treble", 1500, 4500, {0.48F, 0.18F, 0.02F}},
    {"high treble", 12000, 14000, {0.26F, 0.18F, 0.02F}},
    {"ultra treble", 16000, 24000, {0.26F, 0.18F, 0.02F}},
}};

/// Dynamics of a band, and of all bands together in the last row.
struct DynamicsTuning {
    float attenuation, limit, compression, threshold;
};

constexpr std::array<DynamicsTuning, 8> dynamics{{
    {0, 3, 0.04F, -18},
    {0, 3, 0.04F, -18},
    {0, 3, 0.04F, -12},
    {0, 3, -0.08F, 0},
    {0, 3, -0.1F, -12},
    {0, 3, 0.04F, -6},
    {0, 3, 0.04F, -6},
    {-3, 0, 0.8F, -8.5F},
}};

/// Factory gain of `eq` key `index`. The roll-off towards the top is kept by its bits: printed in
/// seven digits, the numbers would come back one bit off.
constexpr std::uint32_t eqGainBits(int index) {
    if (index == 15) return 0x3F6536A0;                // 0.8953648
    if (index == 16) return 0x3F24872F;                // 0.6426877
    if (index >= 17 && index <= 20) return 0x3F135008; // 0.5754399
    return bitsOf(1.0F);
}

void addEqSection(std::vector<SettingKey>& keys) {
    const auto add = [&keys](SettingKey key) { keys.push_back(std::move(key)); };
    const auto hertz = [](int node) {
        return std::to_string(nodeHz[static_cast<std::size_t>(node)]) + " Hz";
    };

    for (int i = 0; i < 23; ++i) {
        const int node = i == 22 ? 0 : i == 21 ? 1 : i + 2;
        add(realBits("Eq", "eq" + std::to_string(i), eqGainBits(i),
                     "gain at " + hertz(node) + ", linear"));
    }
    for (int i = 0; i < 12; ++i)
        add(real("Eq", "del" + std::to_string(i), -0.0F, "delay at " + hertz(2 * i) + ", seconds"));

    int number = 0;
    for (const BandTuning& band : bands) {
        const std::string key = "band" + std::to_string(number++);
        add(real("Eq", key + "lo", band.lowHz, band.name + ", lower edge, Hz"s));
        add(real("Eq", key + "hi", band.highHz, band.name + ", upper edge, Hz"s));
    }
    number = 0;
    for (const BandTuning& band : bands) {
        const std::string key = "trans" + std::to_string(number++);
        add(real("Eq", key + "0", band.transient[0], band.name + ", transients, amount"s));
        add(real("Eq", key + "1", band.transient[1], band.name + ", transients, sensitivity"s));
        add(real("Eq", key + "2", band.transient[2], band.name + ", transients, length"s));
    }
    number = 0;
    for (const DynamicsTuning& row : dynamics) {
        const std::string band =
            number < 7 ? bands[static_cast<std::size_t>(number)].name : "all bands";
        const std::string key = std::to_string(number++);
        add(real("Eq", "atten" + key, row.attenuation, band + ", attenuation, dB"));
        add(real("Eq", "lim" + key, row.limit, band + ", limit, dB"));
        add(real("Eq", "compr" + key, row.compression, band + ", amount of compression"));
        add(real("Eq", "comprlim" + key, row.threshold, band + ", threshold of compression, dB"));
    }

    add(realBits("Eq", "headroom", 0x404CCCCD, "headroom, dB")); // 3.2
    add(boolean("Eq", "enabletrans", true, "transient enhancement on"));
    add(real("Eq", "eqall", 1.0F, "overall gain of the equaliser, linear"));
    add(boolean("Eq", "softclip", true, "soft clip on"));
    add(boolean("Eq", "enable", true, "Kestrix processor on"));
    add(realBits("Eq", "magnitude", 0x3F36DB6E, "drive of the processor, 0 to 1")); // 20/28
}

} // namespace

SettingsValue SettingKey::defaultValue() const {
    if (kind == SettingKind::text) return std::string{};
    return bits;
}

std::span<const SettingKey> settingKeys() {
    static const std::vector<SettingKey> keys = [] {
        std::vector<SettingKey> all;
        addPlainSections(all);
        addEqSection(all);
        return all;
    }();
    return keys;
}

const SettingKey* findSetting(std::string_view section, std::string_view name) {
    for (const SettingKey& key : settingKeys())
        if (key.name == name && key.section == section) return &key;
    return nullptr;
}

const SettingKey* findSetting(std::string_view sectionAndName) {
    const std::size_t slash = sectionAndName.find('/');
    if (slash == std::string_view::npos) return nullptr;
    return findSetting(sectionAndName.substr(0, slash), sectionAndName.substr(slash + 1));
}

std::string_view kindName(SettingKind kind) {
    switch (kind) {
    case SettingKind::boolean:
        return "true or false";
    case SettingKind::integer:
        return "a whole number";
    case SettingKind::real:
        return "a number";
    case SettingKind::text:
        return "a text";
    }
    return "";
}

} // namespace velorine
