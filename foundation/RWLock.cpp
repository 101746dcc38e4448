#include "foundation/RWLock.h"

namespace velorine {

bool RWLock::lockRead() {
    bool admitted = false;
    {
        const Lock::Scope scope{guard};
        if (state < 0 && writer == kernel().currentThreadId()) return false;
        admitted = state >= 0;
        ++(admitted ? state : waitingReaders);
    }
    noteLockTaken(rank);
    if (!admitted) readerSemaphore.wait(); // who lets us in has counted us into `state`
    return true;
}

void RWLock::unlockRead() {
    noteLockGiven(rank);
    const Lock::Scope scope{guard};
    if (--state == 0 && waitingWriters > 0) {
        state = -1;
        --waitingWriters;
        writerSemaphore.release(1);
    }
}

bool RWLock::lockWrite() {
    const std::uint32_t caller = kernel().currentThreadId();
    bool admitted = false;
    {
        const Lock::Scope scope{guard};
        if (state != 0 && writer == caller) return false;
        admitted = state == 0;
        if (admitted) {
            state = -1;
            writer = caller;
        } else {
            ++waitingWriters;
        }
    }
    noteLockTaken(rank);
    if (admitted) return true;
    writerSemaphore.wait();
    const Lock::Scope scope{guard};
    writer = caller;
    return true;
}

void RWLock::unlockWrite() {
    noteLockGiven(rank);
    const Lock::Scope scope{guard};
    writer = 0;
    state = 0;
    if (waitingWriters > 0) {
        state = -1;
        --waitingWriters;
        writerSemaphore.release(1);
    } else if (waitingReaders > 0) {
        state = waitingReaders;
        waitingReaders = 0;
        readerSemaphore.release(state);
    }
}

} // namespace velorine
