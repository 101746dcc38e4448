#include "output/pulse/PulseServer.h"

#include "foundation/Kernel.h"

#include <algorithm>
#include <utility>

namespace velorine {

namespace {
constexpr pa_usec_t retryTime = 300'000; ///< us between two attempts to connect
constexpr int priorityTimeCritical = 15;

PulseServer& serverOf(void* self) {
    return *static_cast<PulseServer*>(self);
}
} // namespace

PulseServer::PulseServer(const PulseLibrary& library, std::atomic<int>& underflowCount)
    : pulse(library), underflows(underflowCount), loop(pulse.pa_threaded_mainloop_new()),
      api(pulse.pa_threaded_mainloop_get_api(loop)) {
    pulse.pa_threaded_mainloop_set_name(loop, "velorine-pulse");
    const Scope guard{*this};
    connect();
    pulse.pa_threaded_mainloop_start(loop);
    // The samples pass through this thread, in portions of a few milliseconds.
    api->defer_new(
        api,
        [](pa_mainloop_api* mainloop, pa_defer_event* event, void*) {
            kernel().setCurrentPriority(priorityTimeCritical);
            mainloop->defer_free(event);
        },
        nullptr);
}

PulseServer::~PulseServer() {
    {
        const Scope guard{*this};
        if (retry) api->time_free(retry);
        dropContext();
    }
    pulse.pa_threaded_mainloop_stop(loop);
    pulse.pa_threaded_mainloop_free(loop);
}

void PulseServer::lock() {
    pulse.pa_threaded_mainloop_lock(loop);
}

void PulseServer::unlock() {
    pulse.pa_threaded_mainloop_unlock(loop);
}

void PulseServer::signal() {
    pulse.pa_threaded_mainloop_signal(loop, 0);
}

bool PulseServer::waitUntil(int ms, const std::function<bool()>& done) {
    if (!context) return done();
    const pa_usec_t deadline = pulse.pa_rtclock_now() + static_cast<pa_usec_t>(ms) * 1000;
    pa_time_event* const timer = pulse.pa_context_rttime_new(
        context, deadline,
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* self) {
            serverOf(self).signal();
        },
        this);
    while (!done() && pulse.pa_rtclock_now() < deadline)
        pulse.pa_threaded_mainloop_wait(loop);
    api->time_free(timer);
    return done();
}

// -- The connection ----------------------------------------------------------------------------

void PulseServer::connect() {
    dropContext();
    pa_proplist* const properties = pulse.pa_proplist_new();
    pulse.pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "Velorine");
    pulse.pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "velorine");
    pulse.pa_proplist_sets(properties, PA_PROP_APPLICATION_ICON_NAME, "velorine");
    context = pulse.pa_context_new_with_proplist(api, nullptr, properties);
    pulse.pa_proplist_free(properties);
    if (!context) return;

    pulse.pa_context_set_state_callback(
        context, [](pa_context*, void* self) { serverOf(self).contextChanged(); }, this);
    pulse.pa_context_set_subscribe_callback(
        context,
        [](pa_context*, pa_subscription_event_type_t, std::uint32_t, void* self) {
            serverOf(self).refresh();
        },
        this);
    // A server that doesn't run is the user's choice: none is started.
    if (pulse.pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        answered = true;
        retryLater();
    }
}

void PulseServer::dropContext() {
    if (!context) return;
    pulse.pa_context_set_state_callback(context, nullptr, nullptr);
    pulse.pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pulse.pa_context_disconnect(context);
    pulse.pa_context_unref(context);
    context = nullptr;
}

void PulseServer::retryLater() {
    if (retry) return;
    retry = pulse.pa_context_rttime_new(
        context, pulse.pa_rtclock_now() + retryTime,
        [](pa_mainloop_api* mainloop, pa_time_event* event, const timeval*, void* self) {
            PulseServer& server = serverOf(self);
            mainloop->time_free(event);
            server.retry = nullptr;
            server.connect();
        },
        this);
}

void PulseServer::contextChanged() {
    const pa_context_state_t state = pulse.pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        pa_operation* const operation =
            pulse.pa_context_subscribe(context,
                                       static_cast<pa_subscription_mask_t>(
                                           PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
                                       nullptr, nullptr);
        if (operation) pulse.pa_operation_unref(operation);
        queries = 0;
        refresh();
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        answered = true;
        known = false;
        sinkList.clear();
        defaultName.clear();
        retryLater();
        tellListeners();
    }
}

// -- Its sinks ---------------------------------------------------------------------------------

/// Asks for the sinks and the default one. What changes meanwhile is asked for once more.
void PulseServer::refresh() {
    if (queries > 0) {
        outdated = true;
        return;
    }
    outdated = false;
    arriving.clear();
    queries = 2;
    pa_operation* const list = pulse.pa_context_get_sink_info_list(
        context,
        [](pa_context*, const pa_sink_info* info, int end, void* self) {
            PulseServer& server = serverOf(self);
            if (end == 0)
                server.arriving.push_back({info->name, info->description});
            else
                server.finishRefresh();
        },
        this);
    if (list) pulse.pa_operation_unref(list);
    pa_operation* const server = pulse.pa_context_get_server_info(
        context,
        [](pa_context*, const pa_server_info* info, void* self) {
            if (info && info->default_sink_name)
                serverOf(self).defaultName = info->default_sink_name;
            serverOf(self).finishRefresh();
        },
        this);
    if (server) pulse.pa_operation_unref(server);
}

void PulseServer::finishRefresh() {
    if (--queries > 0) return;
    sinkList = std::exchange(arriving, {});
    known = answered = true;
    if (outdated) refresh();
    tellListeners();
}

const PulseServer::Sink* PulseServer::findSink(const std::string& description,
                                               const std::string& name) const {
    const auto found = std::find_if(sinkList.begin(), sinkList.end(), [&](const Sink& sink) {
        return name.empty() ? sink.description == description : sink.name == name;
    });
    return found != sinkList.end() ? &*found : nullptr;
}

// -- Listeners ---------------------------------------------------------------------------------

void PulseServer::addListener(Listener& listener) {
    listeners.push_back(&listener);
}

void PulseServer::removeListener(Listener& listener) {
    std::erase(listeners, &listener);
}

void PulseServer::tellListeners() {
    signal();
    for (Listener* const listener : std::vector<Listener*>{listeners})
        listener->serverChanged();
}

} // namespace velorine
