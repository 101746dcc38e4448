#include "kestrix/FftPlan.h"

#include "foundation/LockRank.h"

#include <fftw3.h>

#include <new>

namespace velorine {

namespace {

fftwf_complex* raw(Complex* values) {
    return reinterpret_cast<fftwf_complex*>(values);
}

} // namespace

std::atomic<int> FftPlannerUse::users{0};

std::recursive_mutex FftPlanning::mutex;
int FftPlanning::depth = 0;

FftPlanning::FftPlanning() {
    mutex.lock();
    if (depth++ == 0) noteLockTaken(LockRank::planner);
}

FftPlanning::~FftPlanning() {
    if (--depth == 0) noteLockGiven(LockRank::planner);
    mutex.unlock();
}

FftPlan::~FftPlan() {
    destroy();
}

void FftPlan::destroy() {
    const FftPlanning planning;
    if (plan) fftwf_destroy_plan(plan);
    plan = nullptr;
}

void FftPlan::planComplex(int length, Complex* in, Complex* out, FftDirection direction) {
    const FftPlanning planning;
    destroy();
    const int sign = direction == FftDirection::forward ? FFTW_FORWARD : FFTW_BACKWARD;
    plan = fftwf_plan_dft_1d(length, raw(in), raw(out), sign, FFTW_ESTIMATE);
    if (!plan) throw std::bad_alloc();
}

void FftPlan::planToReal(int length, Complex* in, float* out) {
    const FftPlanning planning;
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
