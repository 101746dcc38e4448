#pragma once

#include "foundation/Event.h"
#include "foundation/Thread.h"

#include <atomic>
#include <cstdint>

namespace velorine {

class DeviceController;

/// Follows the device's position and keeps silence ahead of it.
class DeviceFeedThread final : public Thread {
public:
    explicit DeviceFeedThread(DeviceController& deviceController) : controller(deviceController) {}
    ~DeviceFeedThread() override { join(); }

    /// Lets the thread work, and starts it the first time.
    void enable();

    /// A pass at once. Any thread.
    void wake() { wakeEvent.set(); }

    std::uint32_t run() override;

private:
    DeviceController& controller;
    FlaggedEvent enabled;
    Event wakeEvent{Event::Reset::automatic};
};

} // namespace velorine
