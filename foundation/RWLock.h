#pragma once

#include "foundation/Lock.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Readers and writers. Readers are admitted while writers wait; a writer that goes prefers the
/// next writer. A thread that holds the lock as a writer takes nothing when it asks again. Any
/// thread.
class CAPABILITY("lock") RWLock {
public:
    explicit RWLock(LockRank order = LockRank::leaf) : rank(order) {}

    /// @return false when the caller holds the lock as its writer and nothing was taken
    bool lockRead();
    void unlockRead();

    /// @return false when the caller holds the lock as its writer already
    bool lockWrite();
    void unlockWrite();

    class SCOPED_CAPABILITY ReadScope {
    public:
        explicit ReadScope(RWLock& lock) ACQUIRE_SHARED(lock) NO_THREAD_SAFETY_ANALYSIS
            : held(lock.lockRead() ? &lock : nullptr) {}
        ~ReadScope() RELEASE_GENERIC() NO_THREAD_SAFETY_ANALYSIS {
            if (held) held->unlockRead();
        }
        ReadScope(const ReadScope&) = delete;
        ReadScope& operator=(const ReadScope&) = delete;

    private:
        RWLock* const held;
    };

    class SCOPED_CAPABILITY WriteScope {
    public:
        explicit WriteScope(RWLock& lock) ACQUIRE(lock) NO_THREAD_SAFETY_ANALYSIS
            : held(lock.lockWrite() ? &lock : nullptr) {}
        ~WriteScope() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
            if (held) held->unlockWrite();
        }
        WriteScope(const WriteScope&) = delete;
        WriteScope& operator=(const WriteScope&) = delete;

    private:
        RWLock* const held;
    };

private:
    Lock guard{LockRank::primitive};
    std::int32_t waitingReaders GUARDED_BY(guard) = 0;
    std::int32_t waitingWriters GUARDED_BY(guard) = 0;
    std::int32_t state GUARDED_BY(guard) = 0;   ///< 0 free, above 0 readers, -1 a writer
    std::uint32_t writer GUARDED_BY(guard) = 0; ///< thread id of the writer, 0 while there is none
    Semaphore readerSemaphore;
    Semaphore writerSemaphore;
    const LockRank rank;
};

} // namespace velorine
