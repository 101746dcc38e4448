#pragma once

#include "tests/support/TestClock.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velorine::test {

/// One thing that a listener or a host does.
struct JourneyStep {
    enum class Action { write, wait, seek, pause, resume, stop, next, volume };

    Action action = Action::wait;
    int value = 0; ///< ms, a format's number, or a volume

    friend bool operator==(const JourneyStep&, const JourneyStep&) = default;
};

/// A random listener, whose steps can be told in a line and played again.
struct Journey {
    bool beep = false;
    bool fadeOnSeek = true;
    bool fadeOnStop = true;
    std::vector<JourneyStep> steps;

    static Journey random(std::uint32_t seed);

    /// As `fromText` reads it.
    std::string text() const;
    static Journey fromText(const std::string& text);
};

/// Plays the journey to its end and looks at every frame that was heard.
/// @return what is wrong, empty if nothing is
std::string playJourney(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed);

/// The shortest journey found that fails as `journey` does.
Journey shrunk(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed);

} // namespace velorine::test
