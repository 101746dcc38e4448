#pragma once

#include "foundation/Event.h"
#include "foundation/RecursiveLock.h"
#include "foundation/Thread.h"

#include <atomic>
#include <cstdint>

namespace velorine {

class DeviceController;

/// Runs the device operations that may take long, so that all of them come from one thread.
class DeviceCommandThread final : public Thread {
public:
    enum class Command : int { none = 0, open = 1, start = 2, restore = 3 };

    explicit DeviceCommandThread(DeviceController& deviceController)
        : controller(deviceController) {}
    ~DeviceCommandThread() override { join(); }

    /// Runs `command` at the caller's priority and waits for it. Starts the thread at the first
    /// command. Never with the device's locks held: the command takes them.
    /// @return what the command answered
    bool post(Command command);

    std::uint32_t run() override;

private:
    DeviceController& controller;
    RecursiveLock commandLock{LockRank::command}; ///< one command at a time
    Event commandEvent{Event::Reset::automatic};
    Event commandDoneEvent{Event::Reset::automatic};
    Command command = Command::none; ///< handed over by the two events
    bool answer = false;             ///< likewise
};

} // namespace velorine
