#include "host/BackgroundThread.h"

namespace velorine {

void BackgroundThread::begin() {
    runs.store(true);
    start(true);
}

void BackgroundThread::end() {
    runs.store(false);
    workEvent.reset(); // what was asked for but not begun isn't begun any more
    join();
}

std::uint32_t BackgroundThread::run() {
    const Kernel::Handle handles[] = {stop.native(), workEvent.native()};
    while (runs.load() && kernel().waitAny(handles, Kernel::forever) == 1)
        workEvent.reset();
    return 0;
}

} // namespace velorine
