#include "foundation/KeepAwake.h"

namespace velorine {

namespace {
/// Nothing to ask: a desktop's sound server already inhibits sleep for a stream that plays.
class PosixKeepAwake final : public KeepAwake {
public:
    void require(bool) override {}
};
} // namespace

KeepAwake& KeepAwake::native() {
    static PosixKeepAwake* const instance = new PosixKeepAwake;
    return *instance;
}

} // namespace velorine
