#include "foundation/SignalTable.h"

#include <cassert>

namespace velorine {

void SignalTable::consume(Signal& signal) {
    if (signal.kind == Kind::autoEvent || signal.kind == Kind::semaphore) --signal.count;
}

int SignalTable::take(std::span<const Kernel::Handle> handles) {
    for (std::size_t i = 0; i < handles.size(); ++i) {
        Signal& signal = *from(handles[i]);
        if (signal.count <= 0) continue;
        consume(signal);
        return static_cast<int>(i);
    }
    return Kernel::timedOut;
}

void SignalTable::enqueue(Waiter& waiter, std::span<const Kernel::Handle> handles) {
    assert(handles.size() <= maxHandles);
    waiter.placeCount = handles.size();
    for (std::size_t i = 0; i < handles.size(); ++i) {
        Signal& signal = *from(handles[i]);
        Place& place = waiter.places[i];
        place = {&waiter, &signal, signal.last, nullptr};
        (signal.last ? signal.last->behind : signal.first) = &place;
        signal.last = &place;
    }
}

void SignalTable::withdraw(Waiter& waiter) {
    for (std::size_t i = 0; i < waiter.placeCount; ++i) {
        Place& place = waiter.places[i];
        (place.before ? place.before->behind : place.signal->first) = place.behind;
        (place.behind ? place.behind->before : place.signal->last) = place.before;
    }
    waiter.placeCount = 0;
    waiter.done = true;
}

void SignalTable::satisfy(Waiter& waiter, Signal& signal) {
    for (std::size_t i = 0; i < waiter.placeCount; ++i) {
        if (waiter.places[i].signal == &signal) {
            waiter.result = static_cast<int>(i);
            break;
        }
    }
    consume(signal);
    withdraw(waiter);
}

} // namespace velorine
