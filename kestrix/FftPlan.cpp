#include "kestrix/FftPlan.h"

#include <fftw3.h>

#include <new>

namespace velorine {

namespace {

fftwf_complex* raw(Complex* values) {
    return reinterpret_cast<fftwf_complex*>(values);
}

} // namespace

std::atomic<int> FftPlannerUse::users{0};

RecursiveLock& fftPlannerLock() {
    static RecursiveLock lock{LockRank::planner};
    return lock;
}

FftPlan::~FftPlan() {
    destroy();
}

void FftPlan::destroy() {
    const RecursiveLock::Scope planning{fftPlannerLock()};
    if (plan) fftwf_destroy_plan(plan);
    plan = nullptr;
}

void FftPlan::planComplex(int length, Complex* in, Complex* out, FftDirection direction) {
    const RecursiveLock::Scope planning{fftPlannerLock()};
    destroy();
    const int sign = direction == FftDirection::forward ? FFTW_FORWARD : FFTW_BACKWARD;
    plan = fftwf_plan_dft_1d(length, raw(in), raw(out), sign, FFTW_ESTIMATE);
    if (!plan) throw std::bad_alloc();
}

void FftPlan::planToReal(int length, Complex* in, float* out) {
    const RecursiveLock::Scope planning{fftPlannerLock()};
    destroy();
    plan = fftwf_plan_dft_c2r_1d(length, raw(in), out, FFTW_ESTIMATE);
    if (!plan) throw std::bad_alloc();
}

void FftPlan::execute(Complex* in, Complex* out) const {
    fftwf_execute_dft(plan, raw(in), raw(out));
}

void FftPlan::executeToReal(Complex* in, float* out) const {
    fftwf_execute_dft_c2r(plan, raw(in), out);
}

} // namespace velorine
