#include "tests/support/TestClock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

namespace velorine::test {

namespace {
constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t ticksPerMillisecond = 10'000;
} // namespace

struct TestClock::Task : SignalTable::Signal, SignalTable::Waiter {
    Task() : Signal(SignalTable::Kind::thread) {}

    enum class State { running, ready, blocked };

    std::thread thread;
    ThreadEntry entry = nullptr;
    void* context = nullptr;
    SignalTable::Signal gate{SignalTable::Kind::manualEvent};
    std::condition_variable wake;
    State state = State::blocked;
    bool yields = false; ///< ready, but only to see whether the others have got on
    std::int64_t deadline = never;
    std::int64_t order = 0; ///< of deadlines that are the same
    std::uint32_t id = 0;
    int priority = 0;
};

namespace {
thread_local void* current = nullptr; // the calling thread's Task
}

TestClock::TestClock(Mode chosen, std::uint32_t seed)
    : mode(chosen), random(seed), shuffled(seed != 0) {
    tasks.reserve(64); // a wait shall not touch the heap
    ready.reserve(64);
    main = new Task;
    main->state = Task::State::running;
    current = main;
    running = 1;
    {
        const Guard guard{mutex};
        addTask(*main);
    }
    Kernel::install(this);
}

TestClock::~TestClock() {
    Kernel::install(nullptr);
    current = nullptr;
    {
        const Guard guard{mutex};
        removeTask(*main);
    }
    delete main;
    if (!tasks.empty()) {
        std::fprintf(stderr, "TestClock: %zu threads outlive their clock\n", tasks.size());
        std::abort();
    }
}

void TestClock::addTask(Task& task) {
    task.id = ++lastId;
    tasks.push_back(&task);
}

void TestClock::removeTask(Task& task) {
    std::erase(tasks, &task);
}

TestClock::Task& TestClock::self() {
    if (!current) {
        std::fprintf(stderr,
                     "TestClock: a thread that wasn't made through the clock waits on it\n");
        std::abort();
    }
    return *static_cast<Task*>(current);
}

TestClock::Task& TestClock::taskOf(Handle thread) {
    return static_cast<Task&>(*SignalTable::from(thread));
}

Kernel::Handle TestClock::createEvent(bool manualReset) {
    const Guard guard{mutex};
    ++objects;
    return SignalTable::handleOf(new SignalTable::Signal(
        manualReset ? SignalTable::Kind::manualEvent : SignalTable::Kind::autoEvent));
}

void TestClock::setEvent(Handle event) {
    raise(*SignalTable::from(event), 1);
}

void TestClock::resetEvent(Handle event) {
    const Guard guard{mutex};
    SignalTable::from(event)->count = 0;
}

Kernel::Handle TestClock::createSemaphore() {
    const Guard guard{mutex};
    ++objects;
    return SignalTable::handleOf(new SignalTable::Signal(SignalTable::Kind::semaphore));
}

void TestClock::releaseSemaphore(Handle semaphore, int count) {
    raise(*SignalTable::from(semaphore), count);
}

void TestClock::raise(SignalTable::Signal& signal, int count) {
    {
        const Guard guard{mutex};
        SignalTable::raise(signal, count, [this](SignalTable::Waiter& waiter) {
            makeReady(static_cast<Task&>(waiter));
        });
        schedule();
    }
    maybePreempt();
}

void TestClock::makeReady(Task& task) {
    task.deadline = never;
    task.state = Task::State::ready;
    ready.push_back(&task);
}

/// Lets the thread run that `makeReady` left behind longest; with a seed any of them.
void TestClock::schedule() {
    const int permits = mode == Mode::serial ? 1 : std::numeric_limits<int>::max();
    for (;;) {
        while (running < permits && !ready.empty()) {
            auto next = ready.begin();
            if (shuffled) std::advance(next, static_cast<long>(random() % ready.size()));
            Task& task = **next;
            ready.erase(next);
            run(task);
        }
        if (running > 0) return;
        if (!advanceToDeadline()) reportDeadlock();
    }
}

void TestClock::run(Task& task) {
    task.state = Task::State::running;
    task.yields = false;
    ++running;
    task.wake.notify_one();
}

TestClock::Task* TestClock::earliest() {
    Task* first = nullptr;
    for (Task* task : tasks) {
        if (task->state != Task::State::blocked || task->deadline == never) continue;
        if (!first || task->deadline < first->deadline ||
            (task->deadline == first->deadline && task->order < first->order))
            first = task;
    }
    return first;
}

bool TestClock::advanceToDeadline() {
    Task* next = earliest();
    if (!next) return false;
    if (next->deadline > nowTicks) nowTicks = next->deadline;
    for (; next && next->deadline <= nowTicks; next = earliest()) {
        if (!next->done) SignalTable::withdraw(*next);
        makeReady(*next);
    }
    return true;
}

void TestClock::reportDeadlock() {
    std::fprintf(stderr, "TestClock: all %zu threads wait for ever at %lld ticks:\n", tasks.size(),
                 static_cast<long long>(nowTicks));
    for (const Task* task : tasks) {
        std::fprintf(stderr, "  thread %u waits for", task->id);
        for (std::size_t i = 0; i < task->placeCount; ++i)
            std::fprintf(stderr, " %p", static_cast<void*>(task->places[i].signal));
        std::fprintf(stderr, "\n");
    }
    std::abort();
}

/// Gives up the processor until somebody made the task ready and its turn has come.
void TestClock::block(Task& task, Guard& guard) {
    --running;
    schedule();
    task.wake.wait(guard, [&] { return task.state == Task::State::running; });
}

void TestClock::maybePreempt() {
    if (!shuffled || !current) return;
    Guard guard{mutex};
    if (ready.empty() || random() % 4 != 0) return;
    Task& task = self();
    makeReady(task);
    block(task, guard);
}

int TestClock::waitAny(std::span<const Handle> handles, int timeoutMs) {
    maybePreempt();
    Guard guard{mutex};
    const int taken = SignalTable::take(handles);
    if (taken != timedOut || timeoutMs == 0) return taken;

    Task& task = self();
    task.result = timedOut;
    task.done = false;
    task.deadline = timeoutMs < 0 ? never : nowTicks + timeoutMs * ticksPerMillisecond;
    task.order = ++sequence;
    task.state = Task::State::blocked;
    SignalTable::enqueue(task, handles);
    block(task, guard);
    return task.result;
}

void TestClock::close(Handle handle) {
    SignalTable::Signal* signal = SignalTable::from(handle);
    {
        const Guard guard{mutex};
        --objects;
    }
    if (signal->kind != SignalTable::Kind::thread) {
        delete signal;
        return;
    }
    const std::unique_ptr<Task> task{&taskOf(handle)};
    task->thread.join();
}

Kernel::Handle TestClock::createThread(ThreadEntry entry, void* context) {
    auto task = std::make_unique<Task>();
    Task* const raw = task.get();
    raw->entry = entry;
    raw->context = context;
    {
        const Guard guard{mutex};
        ++objects;
        addTask(*raw);
        raw->done = false;
        const Handle gate[] = {SignalTable::handleOf(&raw->gate)};
        SignalTable::enqueue(*raw, gate);
    }
    raw->thread = std::thread{[this, raw] {
        current = raw;
        {
            Guard guard{mutex};
            raw->wake.wait(guard, [raw] { return raw->state == Task::State::running; });
        }
        raw->entry(raw->context);
        const Guard guard{mutex};
        removeTask(*raw);
        --running;
        SignalTable::raise(*raw, 1, [this](SignalTable::Waiter& waiter) {
            makeReady(static_cast<Task&>(waiter));
        });
        if (!tasks.empty()) schedule();
    }};
    return SignalTable::handleOf(task.release());
}

void TestClock::resumeThread(Handle thread) {
    raise(taskOf(thread).gate, 1);
}

void TestClock::terminateThread(Handle) {
    std::fprintf(stderr, "TestClock: a thread is ended by force\n");
    std::abort();
}

void TestClock::setThreadPriority(Handle thread, int priority) {
    const Guard guard{mutex};
    taskOf(thread).priority = priority;
}

int TestClock::threadPriority(Handle thread) {
    const Guard guard{mutex};
    return taskOf(thread).priority;
}

void TestClock::setCurrentPriority(int priority) {
    const Guard guard{mutex};
    self().priority = priority;
}

int TestClock::currentPriority() {
    const Guard guard{mutex};
    return self().priority;
}

std::uint32_t TestClock::currentThreadId() {
    return self().id;
}

/// A sleep of 0 lets the others run. Where there is none but such as do the same, it lets 0.1 ms
/// pass, so that threads that ask again and again don't stop the time.
void TestClock::sleep(int ms) {
    Guard guard{mutex};
    Task& task = self();
    const bool othersWork =
        std::any_of(ready.begin(), ready.end(), [](const Task* other) { return !other->yields; });
    if (ms <= 0 && othersWork) {
        task.yields = true;
        makeReady(task);
    } else {
        task.done = true;
        task.result = timedOut;
        task.deadline = nowTicks + (ms > 0 ? ms * ticksPerMillisecond : 1000);
        task.order = ++sequence;
        task.state = Task::State::blocked;
    }
    block(task, guard);
}

std::int64_t TestClock::ticks() {
    const Guard guard{mutex};
    return nowTicks;
}

std::int64_t TestClock::counter() {
    constexpr std::int64_t second = 1000 * ticksPerMillisecond;
    const std::int64_t now = ticks();
    if (frequency == 0) return 0;
    return counterStart + now / second * frequency + now % second * frequency / second;
}

std::uint32_t TestClock::mediaTime() {
    return tickStart + static_cast<std::uint32_t>(ticks() / ticksPerMillisecond);
}

std::uint32_t TestClock::tickCount() {
    return mediaTime();
}

int TestClock::liveObjects() {
    const Guard guard{mutex};
    return objects;
}

} // namespace velorine::test
