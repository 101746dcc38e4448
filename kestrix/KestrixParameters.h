#pragma once

namespace velorine {

class RegistryNode;

/// Bands of the processor, lowest first.
inline constexpr int kestrixBands = 7;

/// Index of the "Global Offset" set, which is added to every band's own.
inline constexpr int globalOffset = kestrixBands;

/// Nodes of the gain curve; every second one has a delay.
inline constexpr int eqNodes = 23;
inline constexpr int delayNodes = 12;

/// The Kestrix processor's settings, section "Eq".
///
/// Constructed with a neutral curve and mild dynamics; the factory tuning comes from the settings.
/// Threads: the pump's, or any that holds the pump still with an edit.
struct KestrixParameters {
    struct Edges {
        double low;  ///< Hz
        double high; ///< Hz
    };
    struct Transient {
        double amount;      ///< 0..1
        double sensitivity; ///< 0..1
        double length;      ///< 0..1
    };

    KestrixParameters();

    /// Loads or saves every key. After a load, edges that cross become the built-in ones.
    void exchange(RegistryNode& node);

    double eq[eqNodes];                  ///< linear gain by node, 20 Hz first
    double del[delayNodes] = {};         ///< seconds by every second node; positive is later
    Edges band[kestrixBands];            ///< between two bands the weights cross
    Transient trans[kestrixBands];       ///< lift of what stands above the slow level
    double atten[kestrixBands + 1] = {}; ///< dB
    double lim[kestrixBands + 1];        ///< dB
    double compr[kestrixBands + 1] = {}; ///< 0: none, 1: all levels alike; below 0 expands
    double comprlim[kestrixBands + 1];   ///< dB
    double headroom = 6.0;               ///< dB
    bool enabletrans = true;
    double eqall = 1.0; ///< linear, times every node's gain
    bool softclip = true;
    bool enable = true;
    double magnitude = 0.5;         ///< 0..1: how much of all this is applied
    double magnitudeScale = 1.0;    ///< times `magnitude`; for comparing without the effect
    bool bandEnabled[kestrixBands]; ///< not stored
    bool tiltEnabled = false;       ///< falls with the root of frequency above 10 Hz

private:
    void checkEdges();
};

} // namespace velorine
