#pragma once

#include <atomic>
#include <complex>
#include <mutex>

struct fftwf_plan_s;

namespace velorine {

using Complex = std::complex<float>;

/// Holds the one lock around all FFT planning of the process, which works on state that all plans
/// share. May be nested. Executing a plan needs none. Any thread.
class FftPlanning {
public:
    FftPlanning();
    ~FftPlanning();
    FftPlanning(const FftPlanning&) = delete;
    FftPlanning& operator=(const FftPlanning&) = delete;

private:
    // Of the process and not of an engine, so it outlives each kernel's events; nothing is waited
    // for while it is held.
    static std::recursive_mutex mutex;
    static int depth;
};

/// One user of the planner for as long as it lives. Shared state of the planner may only be given
/// up while there is none.
class FftPlannerUse {
public:
    FftPlannerUse() noexcept { users.fetch_add(1, std::memory_order_relaxed); }
    ~FftPlannerUse() { users.fetch_sub(1, std::memory_order_relaxed); }
    FftPlannerUse(const FftPlannerUse&) = delete;
    FftPlannerUse& operator=(const FftPlannerUse&) = delete;

    static int count() noexcept { return users.load(std::memory_order_relaxed); }

private:
    static std::atomic<int> users;
};

enum class FftDirection { forward, backward };

/// One transform of a fixed length, on any arrays as well aligned (64 bytes) as those it was
/// planned on. Not normalised. Planning overwrites no array.
///
/// Frigo & Johnson, "The Design and Implementation of FFTW3", Proc. IEEE 93 (2005).
class FftPlan {
public:
    FftPlan() = default;
    ~FftPlan();
    FftPlan(const FftPlan&) = delete;
    FftPlan& operator=(const FftPlan&) = delete;

    /// Takes the place of what was planned before.
    /// @param length  complex values; `in` and `out` are different arrays
    void planComplex(int length, Complex* in, Complex* out, FftDirection direction);

    /// Half a conjugate-symmetric spectrum, `length / 2 + 1` values, to `length` real ones. Running
    /// it overwrites its input.
    void planToReal(int length, Complex* in, float* out);

    void execute(Complex* in, Complex* out) const;
    void executeToReal(Complex* in, float* out) const;

private:
    void destroy();

    fftwf_plan_s* plan = nullptr;
};

/// A plan that stands for long.
struct FftPlanHolder : FftPlan {
    FftPlannerUse use;
};

} // namespace velorine
