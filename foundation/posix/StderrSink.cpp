#include "foundation/ErrorReport.h"

#include <cstdio>
#include <cstring>

namespace velorine {

namespace {
class StderrSink final : public ErrorSink {
public:
    void show(const char* text) override {
        const std::size_t length = std::strlen(text);
        const bool ended = length > 0 && text[length - 1] == '\n';
        std::fprintf(stderr, "velorine: %s%s", text, ended ? "" : "\n");
    }
};
} // namespace

ErrorSink& ErrorSink::native() {
    static StderrSink* const instance = new StderrSink;
    return *instance;
}

} // namespace velorine
