#pragma once

#include "foundation/Event.h"
#include "foundation/Thread.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// A thread for work that no caller waits for; it lives from the end of `Init` to the first steps
/// of `Quit`. Nothing is given to it at present.
class BackgroundThread final : public Thread {
public:
    ~BackgroundThread() override { end(); }

    void begin();

    /// Lets the thread end and waits for it, unless it is the caller.
    void end();

    std::uint32_t run() override;

private:
    std::atomic<bool> runs{false}; ///< cleared first: what is in progress then comes to its end
    Event workEvent{Event::Reset::manual};
};

} // namespace velorine
