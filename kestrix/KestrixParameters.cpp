#include "kestrix/KestrixParameters.h"

#include "config/RegistryNode.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace velorine {

namespace {

constexpr KestrixParameters::Edges builtInEdges[kestrixBands] = {
    {0, 60}, {75, 130}, {200, 500}, {800, 1400}, {2000, 3000}, {5000, 7500}, {9500, 24000}};

/// The two lowest nodes joined the curve last, behind all other keys.
constexpr int nodeOfKey(int key) {
    switch (key) {
    case 22:
        return 0;
    case 21:
        return 1;
    default:
        return key + 2;
    }
}

} // namespace

KestrixParameters::KestrixParameters() {
    std::fill(std::begin(eq), std::end(eq), 1.0);
    std::copy(std::begin(builtInEdges), std::end(builtInEdges), band);
    std::fill(std::begin(trans), std::end(trans), Transient{0.12, 0.5, 0.5});
    std::fill(std::begin(lim), std::end(lim), 6.0);
    std::fill(std::begin(comprlim), std::end(comprlim), -24.0);
    lim[globalOffset] = comprlim[globalOffset] = 0.0;
    std::fill(std::begin(bandEnabled), std::end(bandEnabled), true);
}

void KestrixParameters::exchange(RegistryNode& node) {
    const auto number = [&](const std::string& name, double& value) {
        node.exchangeDouble("Eq", name, value);
    };
    for (int key = 0; key < eqNodes; ++key)
        number("eq" + std::to_string(key), eq[nodeOfKey(key)]);
    for (int j = 0; j < delayNodes; ++j)
        number("del" + std::to_string(j), del[j]);
    for (int b = 0; b < kestrixBands; ++b) {
        number("band" + std::to_string(b) + "lo", band[b].low);
        number("band" + std::to_string(b) + "hi", band[b].high);
    }
    for (int b = 0; b < kestrixBands; ++b) {
        number("trans" + std::to_string(b) + "0", trans[b].amount);
        number("trans" + std::to_string(b) + "1", trans[b].sensitivity);
        number("trans" + std::to_string(b) + "2", trans[b].length);
    }
    for (int i = 0; i <= globalOffset; ++i) {
        number("atten" + std::to_string(i), atten[i]);
        number("lim" + std::to_string(i), lim[i]);
        number("compr" + std::to_string(i), compr[i]);
        number("comprlim" + std::to_string(i), comprlim[i]);
    }
    number("headroom", headroom);
    node.exchangeBool("Eq", "enabletrans", enabletrans);
    number("eqall", eqall);
    node.exchangeBool("Eq", "softclip", softclip);
    node.exchangeBool("Eq", "enable", enable);
    number("magnitude", magnitude);
    if (node.mode == RegistryNode::read) checkEdges();
}

void KestrixParameters::checkEdges() {
    for (int b = 0; b < kestrixBands; ++b) {
        const bool ascending = std::isfinite(band[b].low) && std::isfinite(band[b].high) &&
                               band[b].low <= band[b].high &&
                               (b + 1 == kestrixBands || band[b].high <= band[b + 1].low);
        if (ascending) continue;
        std::copy(std::begin(builtInEdges), std::end(builtInEdges), band);
        return;
    }
}

} // namespace velorine
