#include "tests/pulse/Listening.h"

#include "tests/pulse/Await.h"

#include <algorithm>
#include <sstream>

namespace velorine::test {

namespace {
constexpr int hiccups = 3; ///< breaks of a server that wasn't given the processor in time
}

std::vector<Stretch> soundIn(const Recorder& recorder, const LiveHost& host) {
    std::vector<Stretch> list = stretches(recorder.heard(), host.segments);
    if (!list.empty() && list.back().kind == Stretch::Kind::silence) list.pop_back();
    if (!list.empty() && list.front().kind == Stretch::Kind::silence) list.erase(list.begin());
    return list;
}

std::string continuityFault(const std::vector<Stretch>& list, int gaps) {
    std::ostringstream fault;
    const Stretch* last = nullptr; // of programme
    bool faded = false;
    int silences = 0;
    for (const Stretch& stretch : list) {
        if (stretch.kind == Stretch::Kind::silence) ++silences;
        if (stretch.kind == Stretch::Kind::blend) faded = true;
        if (stretch.kind != Stretch::Kind::programme) continue;
        const bool sameSegment = last && last->segment == stretch.segment;
        if (sameSegment && !faded && stretch.first != last->end())
            fault << "segment " << stretch.segment << ": " << stretch.first << " follows "
                  << last->end() << "\n";
        if (last && stretch.segment < last->segment) fault << "an older segment is heard again\n";
        last = &stretch;
        faded = false;
    }
    if (silences > gaps + hiccups) fault << silences << " breaks, " << gaps << " are allowed\n";
    return fault.str();
}

bool awaitFrame(const Recorder& recorder, const LiveHost& host, int segment, int frame) {
    const std::int32_t value = host.segments[static_cast<std::size_t>(segment)].base + frame;
    return comesTrue([&] {
        const std::vector<std::int32_t> samples = recorder.samples<std::int32_t>();
        return std::find(samples.rbegin(), samples.rend(), value) != samples.rend();
    });
}

} // namespace velorine::test
