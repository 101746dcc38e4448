#pragma once

#include "foundation/Lock.h"
#include "host/HostStream.h"
#include "host/HostWindow.h"
#include "host/ModuleOptions.h"
#include "host/OutModule.h"

#include <memory>

namespace velorine {

class Session;

/// The plug-in as the host knows it: one for the process. Calls before `Init` and after `Quit` are
/// harmless, and a second `Init` is ignored. Any of the host's threads.
class Module {
public:
    static Module& instance();

    /// The record that the host gets. Its window is taken over at `Init`.
    Out_Module& record();

    void init();
    void quit();

    /// The running session, which a call keeps alive to its end; null outside of `Init` and `Quit`.
    std::shared_ptr<Session> session() const;

    void setOptions(ModuleOptions next);

private:
    mutable Lock lock;
    std::shared_ptr<Session> running; ///< guarded by lock
    HostStream stream;                ///< lives across sessions
    HostWindow window;
    ModuleOptions options; ///< of the next `Init`; host's main thread
};

} // namespace velorine

extern "C" {

/// The library's one export.
[[gnu::visibility("default")]] Out_Module* winampGetOutModule();
}
