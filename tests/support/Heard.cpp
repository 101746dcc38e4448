#include "tests/support/Heard.h"

#include <cstring>
#include <sstream>

namespace velorine::test {

std::vector<HeardFrame> heardFrames(TestSound& sound) {
    std::vector<HeardFrame> frames;
    for (const TestSound::Passage& passage : sound.passages()) {
        const int align = passage.format.blockAlign();
        for (int i = 0; i < passage.count(); ++i) {
            HeardFrame frame;
            std::memcpy(&frame.value, passage.frames.data() + std::ptrdiff_t{i} * align,
                        sizeof frame.value);
            frame.tick =
                passage.startTick + (std::int64_t{i} + 1) * 10'000'000 / passage.format.rate;
            frames.push_back(frame);
        }
    }
    return frames;
}

namespace {

/// Values of a blend that happen to be ones of the programme are still the blend.
std::vector<Stretch> withoutStrayValues(const std::vector<Stretch>& list) {
    constexpr int shortest = 8; // frames; a blend's values don't count up by one for long
    std::vector<Stretch> cleaned;
    for (std::size_t i = 0; i < list.size(); ++i) {
        Stretch stretch = list[i];
        const bool afterBlend = !cleaned.empty() && cleaned.back().kind == Stretch::Kind::blend;
        const bool beforeBlend =
            i + 1 < list.size() &&
            (list[i + 1].kind == Stretch::Kind::blend ||
             (list[i + 1].kind == Stretch::Kind::programme && list[i + 1].frames < shortest));
        if (stretch.kind == Stretch::Kind::programme && stretch.frames < shortest &&
            (afterBlend || beforeBlend))
            stretch.kind = Stretch::Kind::blend;
        if (stretch.kind == Stretch::Kind::blend && !cleaned.empty() &&
            cleaned.back().kind == Stretch::Kind::blend)
            cleaned.back().frames += stretch.frames;
        else
            cleaned.push_back(stretch);
    }
    return cleaned;
}

} // namespace

std::vector<Stretch> stretches(const std::vector<HeardFrame>& heard,
                               const std::vector<Segment>& segments) {
    std::vector<Stretch> list;
    for (const HeardFrame& frame : heard) {
        Stretch single{Stretch::Kind::blend, -1, 0, 1, frame.tick};
        if (frame.value == 0) single.kind = Stretch::Kind::silence;
        for (std::size_t i = 0; i < segments.size() && frame.value != 0; ++i) {
            const std::int64_t index = std::int64_t{frame.value} - segments[i].base;
            if (index < 0 || index >= segments[i].frames) continue;
            single = {Stretch::Kind::programme, static_cast<int>(i), static_cast<int>(index), 1,
                      frame.tick};
        }
        if (!list.empty()) {
            Stretch& last = list.back();
            const bool goesOn =
                last.kind == single.kind && last.segment == single.segment &&
                (single.kind != Stretch::Kind::programme || last.end() == single.first);
            if (goesOn) {
                ++last.frames;
                continue;
            }
        }
        list.push_back(single);
    }
    return withoutStrayValues(list);
}

std::string described(const std::vector<Stretch>& list) {
    std::ostringstream text;
    for (const Stretch& stretch : list) {
        switch (stretch.kind) {
        case Stretch::Kind::silence:
            text << "silence";
            break;
        case Stretch::Kind::blend:
            text << "blend";
            break;
        case Stretch::Kind::programme:
            text << "segment " << stretch.segment << " from " << stretch.first;
            break;
        }
        text << " x" << stretch.frames << " at " << stretch.tick / 10'000 << " ms\n";
    }
    return text.str();
}

std::string orderFault(const std::vector<Stretch>& list) {
    std::ostringstream fault;
    int segment = -1;
    int next = 0;    // frame of the segment that comes next
    int blended = 0; // frames of a blend, or of silence in place of late ones, since then
    for (const Stretch& stretch : list) {
        if (stretch.kind != Stretch::Kind::programme) blended += stretch.frames;
        if (stretch.kind != Stretch::Kind::programme) continue;
        if (stretch.segment < segment)
            fault << "segment " << stretch.segment << " again after " << segment << "\n";
        if (stretch.segment == segment && stretch.first < next)
            fault << "segment " << segment << ": frame " << stretch.first << " again after " << next
                  << "\n";
        if (stretch.segment == segment && stretch.first > next + blended)
            fault << "segment " << segment << ": frames " << next << " to " << stretch.first
                  << " are missing\n";
        segment = stretch.segment;
        next = stretch.end();
        blended = 0;
    }
    return fault.str();
}

std::int64_t firstChange(const std::vector<HeardFrame>& heard, std::int64_t since) {
    for (std::size_t i = 1; i < heard.size(); ++i) {
        if (heard[i].tick <= since) continue;
        if (heard[i].value != heard[i - 1].value + 1) return heard[i].tick;
    }
    return -1;
}

} // namespace velorine::test
