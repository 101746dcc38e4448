#include "host/HostWindow.h"
#include "host/OutModule.h"

namespace velorine {

std::intptr_t HostWindow::send(std::uintptr_t wParam, std::intptr_t lParam) const {
    auto* const host = static_cast<VelorineHostWindow*>(window);
    return host && host->send ? host->send(host, hostMessage::user, wParam, lParam) : 0;
}

/// There are no messages to watch, and the linker was told to keep the library loaded.
void HostWindow::watch() {
    watched = true;
}

bool HostWindow::sawEndOfFile() noexcept {
    return false;
}

} // namespace velorine
