#include "kestrix/LevelHistory.h"

#include <algorithm>

namespace velorine {

void LevelHistory::append(const BandLevelRecord& record) {
    const RecursiveLock::Scope guard{levelLock};
    while (!records.empty() && records.newest().time >= record.time)
        records.popNewest();
    records.push(record);
}

void LevelHistory::prune(std::int64_t position) {
    const RecursiveLock::Scope guard{levelLock};
    while (records.count() > 2 && records.at(2).position < position)
        records.pop();
}

void LevelHistory::levelsAt(FxTime time, double (&levels)[kestrixBands]) const {
    const RecursiveLock::Scope guard{levelLock};
    std::fill(std::begin(levels), std::end(levels), 0.0);
    if (records.count() < 2) return;
    int i = 0;
    while (i < records.count() && records.at(i).time < time)
        ++i;
    if (i == records.count()) return;
    const BandLevelRecord& after = records.at(i);
    if (i == 0 || after.time == time) {
        std::copy(std::begin(after.level), std::end(after.level), levels);
        return;
    }
    const BandLevelRecord& before = records.at(i - 1);
    const double share =
        static_cast<double>(time - before.time) / static_cast<double>(after.time - before.time);
    for (int b = 0; b < kestrixBands; ++b)
        levels[b] = before.level[b] + (after.level[b] - before.level[b]) * share;
}

int LevelHistory::count() const {
    const RecursiveLock::Scope guard{levelLock};
    return records.count();
}

} // namespace velorine
