#include "output/DeviceCommandThread.h"

#include "foundation/PriorityScope.h"
#include "output/DeviceController.h"

namespace velorine {

bool DeviceCommandThread::post(Command wanted) {
    const RecursiveLock::Scope commanding{commandLock};
    if (!isRunning()) start(priorityTimeCritical, true);
    setPriority(kernel().currentPriority());
    command = wanted;
    commandEvent.set();
    commandDoneEvent.wait();
    return answer;
}

std::uint32_t DeviceCommandThread::run() {
    const Kernel::Handle handles[] = {stop.native(), commandEvent.native()};
    while (kernel().waitAny(handles, Kernel::forever) == 1) {
        answer = controller.runCommand(command);
        command = Command::none;
        commandDoneEvent.set();
    }
    return 0;
}

} // namespace velorine
