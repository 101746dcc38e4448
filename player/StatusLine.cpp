#include "player/StatusLine.h"

#include "player/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velorine {

namespace {

constexpr const char* bold = "\033[1m";
constexpr const char* plain = "\033[0m";

/// What leaves the host's format for another one.
std::string outputText(const PlayState& play) {
    if (!play.outputFormat) return "";
    std::string text = " -> ";
    if (play.outputFormat->rate != play.hostFormat.rate)
        text += std::to_string(play.outputFormat->rate) + " Hz ";
    text += sampleText(play.outputFormat->type);
    if (play.outputFormat->channels != play.hostFormat.channels)
        text += " " + channelsText(play.outputFormat->channels);
    return text;
}

} // namespace

std::string sampleText(int type) {
    if (type == sampleType::float32) return "float";
    if (type == sampleType::float64) return "double";
    return std::to_string(bitsPerSample(type)) + "-bit";
}

std::string statusLine(const PlayState& play, int columns, bool colour) {
    std::string rest = "  " + clockText(play.positionMs);
    if (play.lengthMs) rest += " / " + clockText(*play.lengthMs);
    rest += "  queue " + std::to_string(std::max(play.queueMs, 0)) + " ms  ";
    rest += describe(play.hostFormat) + outputText(play);
    if (!play.device.empty()) rest += " (" + printable(play.device) + ")";
    if (play.volume != 255) rest += "  vol " + std::to_string(play.volume * 100 / 255) + " %";
    rest += "  ";
    if (play.tracks > 1)
        rest += std::to_string(play.track + 1) + "/" + std::to_string(play.tracks) + " ";
    rest += printable(play.title);

    // The last column stays free: a terminal may wrap there.
    const std::string line = fitColumns(play.state + rest, columns - 1);
    if (!colour || line.size() <= play.state.size()) return line;
    return bold + play.state + plain + line.substr(play.state.size());
}

std::string progressLine(double share, double speed, const std::string& name, int columns) {
    constexpr int barWidth = 30;
    const double filled = std::clamp(share, 0.0, 1.0);
    const auto marks = static_cast<std::size_t>(filled * barWidth);
    std::string line = "[" + std::string(marks, '#') + std::string(barWidth - marks, '.') + "]";
    char figures[64];
    std::snprintf(figures, sizeof figures, " %3d %%", static_cast<int>(filled * 100));
    line += figures;
    if (speed > 0) {
        std::snprintf(figures, sizeof figures, "  %.0f x real time", speed);
        line += figures;
    }
    line += "  " + printable(name);
    return fitColumns(line, columns - 1);
}

} // namespace velorine
