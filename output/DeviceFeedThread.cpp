#include "output/DeviceFeedThread.h"

#include "foundation/PriorityScope.h"
#include "output/DeviceController.h"

namespace velorine {

void DeviceFeedThread::enable() {
    enabled.set();
    if (!isRunning()) start(priorityTimeCritical, true);
    wake();
}

std::uint32_t DeviceFeedThread::run() {
    if (waitForFirst(Kernel::forever, stop, enabled) == 0) return 0;
    int waitMs = 0;
    for (;;) {
        const Kernel::Handle handles[] = {stop.native(), wakeEvent.native()};
        if (stop.isSet() || kernel().waitAny(handles, waitMs) == 0) return 0;
        waitMs = controller.feedPass();
        controller.startIfReady();
    }
}

} // namespace velorine
