#pragma once

namespace velorine::test {

/// Calls of the general heap by all threads but those that asked to be left out.
class HeapCount {
public:
    static bool works(); ///< false where the heap can't be watched, as under a sanitizer
    static void leaveOutCaller();
    static long calls();
};

} // namespace velorine::test
