#include "foundation/Lock.h"
#include "foundation/Thread.h"
#include "kestrix/dsphost/WaDspWindowThread.h"

#include <dlfcn.h>

#include <utility>

namespace velorine {

struct WaDspWindowThread::State {
    explicit State(std::function<void(unsigned)> handler) : onMessage(std::move(handler)) {}

    const std::function<void(unsigned)> onMessage;
    FlaggedEvent started;
    Lock sending{LockRank::leaf}; ///< one message at a time
    unsigned message = 0;         ///< handed over by the events
    FlaggedEvent posted;
    Event done{Event::Reset::automatic};
};

class WaDspWindowThread::Pump final : public Thread {
public:
    explicit Pump(State& shared) : state(shared) {}
    ~Pump() override { join(); }

    std::uint32_t run() override {
        state.started.set();
        while (waitForFirst(Kernel::forever, state.posted, stop) == 0) {
            state.posted.reset();
            if (state.message != dspMessage::begin) state.onMessage(state.message);
            state.done.set();
        }
        return 0;
    }

private:
    State& state;
};

WaDspWindowThread::WaDspWindowThread(std::function<void(unsigned)> onMessage)
    : state(std::make_unique<State>(std::move(onMessage))) {}

WaDspWindowThread::~WaDspWindowThread() = default;

void WaDspWindowThread::start() {
    if (pump) return;
    pump = std::make_unique<Pump>(*state);
    pump->start(false);
    state->started.wait();
    state->started.reset();
    send(dspMessage::begin);
}

void WaDspWindowThread::send(unsigned message) {
    if (!pump) return;
    if (pump->isCurrent()) { // inside another message
        state->onMessage(message);
        return;
    }
    const Lock::Scope scope{state->sending};
    state->message = message;
    state->posted.set();
    state->done.wait();
}

void* WaDspWindowThread::window() const noexcept {
    return nullptr;
}

void releaseDspLibrary(void* library) {
    dlclose(library);
}

} // namespace velorine
