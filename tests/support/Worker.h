#pragma once

#include "foundation/Thread.h"

#include <functional>
#include <utility>

namespace velorine::test {

/// A thread of a test: does `work`, and is waited for where it ends.
class Worker final : public Thread {
public:
    explicit Worker(std::function<void()> job) : work(std::move(job)) { start(false); }
    ~Worker() override { join(); }
    std::uint32_t run() override {
        work();
        return 0;
    }

private:
    const std::function<void()> work;
};

} // namespace velorine::test
