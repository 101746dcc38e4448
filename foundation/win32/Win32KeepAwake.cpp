#include "foundation/KeepAwake.h"

#include <windows.h>

namespace velorine {

namespace {
class Win32KeepAwake final : public KeepAwake {
public:
    void require(bool awake) override {
        SetThreadExecutionState(awake ? ES_SYSTEM_REQUIRED | ES_CONTINUOUS : ES_CONTINUOUS);
    }
};
} // namespace

KeepAwake& KeepAwake::native() {
    static Win32KeepAwake* const instance = new Win32KeepAwake;
    return *instance;
}

} // namespace velorine
