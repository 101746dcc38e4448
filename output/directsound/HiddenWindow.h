#pragma once

#include "foundation/Thread.h"

#include <windows.h>

namespace velorine {

/// A window that nobody sees, on a thread of its own that answers its messages: DirectSound asks
/// for one to belong to.
class HiddenWindow final : private Thread {
public:
    /// Returns once the window exists, or could not be made.
    HiddenWindow();
    ~HiddenWindow() override;

    HWND handle() const noexcept { return window; } ///< null: there is none

private:
    std::uint32_t run() override;

    HWND window = nullptr; ///< written before `made` is set
    FlaggedEvent made;
};

} // namespace velorine
