#include "foundation/ErrorReport.h"

#include <windows.h>

namespace velorine {

namespace {
class MessageBoxSink final : public ErrorSink {
public:
    void show(const char* text) override { MessageBoxA(nullptr, text, "Error", MB_OK); }
};
} // namespace

ErrorSink& ErrorSink::native() {
    static MessageBoxSink* const instance = new MessageBoxSink;
    return *instance;
}

} // namespace velorine
