#include "host/HostWindow.h"

namespace velorine {

void HostWindow::keep(void* given) {
    const auto value = reinterpret_cast<std::intptr_t>(given);
    if (value != 0 && value != -1) window = given;
}

bool endOfFileAfter(unsigned message, bool before) noexcept {
    constexpr unsigned endOfFile = hostMessage::user + 2;
    if (message == hostMessage::user) return before;
    return message == endOfFile;
}

} // namespace velorine
