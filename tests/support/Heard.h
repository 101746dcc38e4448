#pragma once

#include "tests/support/TestSound.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velorine::test {

/// One frame that the play cursor passed, by its first channel, and when.
struct HeardFrame {
    std::int32_t value = 0;
    std::int64_t tick = 0; ///< 100 ns on the test clock
};

/// All that was heard, of passages with 32-bit integer samples.
std::vector<HeardFrame> heardFrames(TestSound& sound);

/// A run of programme that a host wrote: frame `i` has the value `base + i`.
struct Segment {
    std::int32_t base = 0;
    int frames = 0;
};

/// A stretch of what was heard.
struct Stretch {
    enum class Kind { silence, programme, blend };

    Kind kind = Kind::silence;
    int segment = -1; ///< of programme: index into the segments
    int first = 0;    ///< of programme: its first frame in the segment
    int frames = 0;
    std::int64_t tick = 0; ///< when its first frame was heard

    int end() const { return first + frames; }
};

/// What was heard as stretches of silence, of programme in order, and of anything else.
std::vector<Stretch> stretches(const std::vector<HeardFrame>& heard,
                               const std::vector<Segment>& segments);

/// The stretches in a line each, for a failure's report.
std::string described(const std::vector<Stretch>& list);

/// Empty if programme is heard in order, nothing of it twice and nothing left out without a fade or
/// a change of segment in between; else what is wrong.
std::string orderFault(const std::vector<Stretch>& list);

/// Tick at which something else than the programme going on is first heard behind `since`: -1 when
/// it goes on to the end.
std::int64_t firstChange(const std::vector<HeardFrame>& heard, std::int64_t since);

} // namespace velorine::test
