#pragma once

#include "output/pulse/PulseLibrary.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace velorine {

/// The connection to the sound server, kept up for as long as this lives: a server that isn't there
/// is tried again until it is.
///
/// It has a thread of its own, the mainloop's. Everything but the making, the ending and the
/// statistics is done under the mainloop's lock, which that thread holds in every callback.
class PulseServer {
public:
    struct Sink {
        std::string name;        ///< for good
        std::string description; ///< as people know it
    };

    /// Someone who wants to know when the server came, went, or has other sinks.
    class Listener {
    public:
        virtual ~Listener() = default;
        virtual void serverChanged() = 0; ///< mainloop's thread, lock held
    };

    /// @param underflowCount  is counted up; outlives this
    PulseServer(const PulseLibrary& library, std::atomic<int>& underflowCount);
    ~PulseServer();
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;

    /// Holds the mainloop's lock; the thread that has it may take it again.
    class Scope {
    public:
        explicit Scope(PulseServer& pulseServer) : server(pulseServer) { server.lock(); }
        ~Scope() { server.unlock(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        PulseServer& server;
    };
    void lock();
    void unlock();

    /// Lets the mainloop work until `done` holds, `ms` at most. Not from its own thread.
    /// @return whether it holds
    bool waitUntil(int ms, const std::function<bool()>& done);

    /// Lets a `waitUntil` look again.
    void signal();

    /// Connected, and its sinks are known.
    bool isReady() const noexcept { return context && known; }

    /// The first attempt to connect has come to an end, whichever.
    bool hasAnswered() const noexcept { return answered; }

    pa_context* connection() const noexcept { return context; }
    const std::vector<Sink>& sinks() const noexcept { return sinkList; }
    const std::string& defaultSink() const noexcept { return defaultName; }

    /// The sink of that lasting name, or if that is empty, of that description. Null if none is.
    const Sink* findSink(const std::string& description, const std::string& name) const;

    void addListener(Listener& listener);
    void removeListener(Listener& listener);

    const PulseLibrary& pulse;
    std::atomic<int>& underflows; ///< times the server ran out of our samples; relaxed

private:
    void connect();
    void dropContext();
    void retryLater();
    void contextChanged();
    void refresh();
    void finishRefresh();
    void tellListeners();

    pa_threaded_mainloop* const loop;
    pa_mainloop_api* const api;
    pa_context* context = nullptr; ///< null before the first, and while none can be made
    pa_time_event* retry = nullptr;
    bool answered = false;
    bool known = false;    ///< `sinkList` and `defaultName` are the server's
    int queries = 0;       ///< answers that are awaited
    bool outdated = false; ///< something changed while they were
    std::vector<Sink> sinkList;
    std::vector<Sink> arriving; ///< of the list that is being answered
    std::string defaultName;
    std::vector<Listener*> listeners;
};

} // namespace velorine
