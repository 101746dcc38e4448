#include "tests/journeys/Journey.h"

#include "tests/journeys/Programme.h"

#include <array>
#include <random>
#include <sstream>
#include <utility>

namespace velorine::test {

namespace {

using Action = JourneyStep::Action;

constexpr std::array<std::pair<Action, const char*>, 8> names = {{{Action::write, "write"},
                                                                  {Action::wait, "wait"},
                                                                  {Action::seek, "seek"},
                                                                  {Action::pause, "pause"},
                                                                  {Action::resume, "resume"},
                                                                  {Action::stop, "stop"},
                                                                  {Action::next, "next"},
                                                                  {Action::volume, "volume"}}};

/// Formats of tracks, by number: all of 32 bits.
constexpr std::array<TrackFormat, 6> formats = {
    {{48000, 2}, {44100, 2}, {48000, 1}, {22050, 2}, {48000, 6}, {96000, 2}}};

class Player {
public:
    Player(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed)
        : programme(setupFor(journey, mode, clockSeed)) {
        programme.open();
    }

    void act(const JourneyStep& step) {
        switch (step.action) {
        case Action::write:
            write(step.value);
            break;
        case Action::wait:
            programme.host.advance(step.value);
            break;
        case Action::seek:
            programme.seek(step.value);
            break;
        case Action::pause:
            programme.host.out.Pause(1);
            paused = true;
            break;
        case Action::resume:
            resume();
            break;
        case Action::stop:
            open(step.value, false);
            break;
        case Action::next:
            open(step.value, true);
            break;
        case Action::volume:
            programme.host.out.SetVolume(step.value);
            break;
        }
        noteTime(step);
    }

    std::string end() {
        resume();
        write(400);
        programme.close(true);
        programme.host.advance(4000);
        const std::int64_t call = programme.now();
        programme.host.out.Quit();
        if (programme.now() - call > 60'000'000) fault += "Quit takes more than 6 s\n";

        const auto list = programme.stretches();
        fault += orderFault(list);
        const int last = static_cast<int>(programme.segments.size()) - 1;
        int heardEnd = 0;
        for (const Stretch& stretch : list)
            if (stretch.segment == last) heardEnd = stretch.end();
        if (heardEnd != programme.segments.back().frames)
            fault += "the last segment ends at " + std::to_string(heardEnd) + " of " +
                     std::to_string(programme.segments.back().frames) + "\n";
        return fault.empty() ? fault : fault + described(list);
    }

private:
    static TestHost::Setup setupFor(const Journey& journey, TestClock::Mode mode,
                                    std::uint32_t clockSeed) {
        TestHost::Setup setup;
        setup.mode = mode;
        setup.seed = clockSeed;
        setup.beep = journey.beep;
        setup.fadeOnSeek = journey.fadeOnSeek;
        setup.fadeOnStop = journey.fadeOnStop;
        return setup;
    }

    void write(int ms) {
        // A host whose stream is paused is only permitted what fits ahead.
        if (paused)
            programme.writePermitted(ms);
        else
            programme.writeMs(ms);
    }
    void resume() {
        if (!paused) return;
        programme.host.out.Pause(0);
        paused = false;
    }
    void open(int format, bool goesOn) {
        programme.close(goesOn);
        programme.open(formats[static_cast<std::size_t>(format) % formats.size()]);
        paused = false;
        lastTime = -1;
    }

    /// The position of a track never goes back, but for a seek.
    void noteTime(const JourneyStep& step) {
        const int time = programme.host.out.GetOutputTime();
        if (step.action == Action::seek) {
            if (time != step.value) fault += "time is " + std::to_string(time) + " after a seek\n";
        } else if (time < lastTime) {
            fault += "time goes back from " + std::to_string(lastTime) + " to " +
                     std::to_string(time) + "\n";
        }
        lastTime = time;
    }

    Programme programme;
    bool paused = false;
    int lastTime = -1;
    std::string fault;
};

bool fails(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed) {
    return !playJourney(journey, mode, clockSeed).empty();
}

} // namespace

std::string playJourney(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed) {
    Player player{journey, mode, clockSeed};
    for (const JourneyStep& step : journey.steps)
        player.act(step);
    return player.end();
}

Journey Journey::random(std::uint32_t seed) {
    std::mt19937 source{seed};
    const auto below = [&source](int limit) {
        return static_cast<int>(source() % static_cast<std::uint32_t>(limit));
    };
    Journey journey;
    journey.beep = below(4) == 0;
    journey.fadeOnSeek = below(3) != 0;
    journey.fadeOnStop = below(3) != 0;
    const int count = 3 + below(10);
    for (int i = 0; i < count; ++i) {
        switch (below(12)) {
        case 0:
        case 1:
        case 2:
            journey.steps.push_back({Action::write, below(900)});
            break;
        case 3:
            journey.steps.push_back({Action::write, below(3000)});
            break;
        case 4:
            journey.steps.push_back({Action::wait, below(150)});
            break;
        case 5:
            journey.steps.push_back({Action::wait, below(8) ? below(2500) : below(9000)});
            break;
        case 6:
        case 7:
            journey.steps.push_back({Action::seek, below(100'000)});
            break;
        case 8:
            journey.steps.push_back({Action::pause, 0});
            break;
        case 9:
            journey.steps.push_back({Action::resume, 0});
            break;
        case 10:
            journey.steps.push_back({below(2) ? Action::stop : Action::next, below(6)});
            break;
        default:
            journey.steps.push_back({Action::volume, below(256)});
            break;
        }
    }
    return journey;
}

std::string Journey::text() const {
    std::ostringstream out;
    out << beep << ' ' << fadeOnSeek << ' ' << fadeOnStop;
    for (const JourneyStep& step : steps)
        for (const auto& [action, name] : names)
            if (action == step.action) out << ' ' << name << ' ' << step.value;
    return out.str();
}

Journey Journey::fromText(const std::string& text) {
    Journey journey;
    std::istringstream in{text};
    in >> journey.beep >> journey.fadeOnSeek >> journey.fadeOnStop;
    std::string word;
    for (int value = 0; in >> word >> value;)
        for (const auto& [action, name] : names)
            if (word == name) journey.steps.push_back({action, value});
    return journey;
}

Journey shrunk(const Journey& journey, TestClock::Mode mode, std::uint32_t clockSeed) {
    Journey smallest = journey;
    for (bool smaller = true; smaller;) {
        smaller = false;
        for (std::size_t i = 0; i < smallest.steps.size(); ++i) {
            Journey without = smallest;
            without.steps.erase(without.steps.begin() + static_cast<std::ptrdiff_t>(i));
            Journey halved = smallest;
            halved.steps[i].value /= 2;
            for (const Journey& candidate : {without, halved}) {
                if (candidate.steps == smallest.steps || !fails(candidate, mode, clockSeed))
                    continue;
                smallest = candidate;
                smaller = true;
                break;
            }
            if (smaller) break;
        }
    }
    return smallest;
}

} // namespace velorine::test
