#pragma once

#include <cstddef>
#include <span>

namespace velorine {

/// One run of pages, pinned so that sample data takes no page faults. Owns it; move-only.
///
/// The last few runs that were given back are kept and handed out again: a steady stream maps no
/// memory. Their content is whatever the last owner left. Any thread.
class LockedPages {
public:
    LockedPages() = default; ///< holds nothing

    /// @param bytes  above 0, rounded up to whole pages; `fatal` if the machine refuses, and a
    ///               warning to the user above 2^27 - 1
    explicit LockedPages(std::size_t bytes);
    LockedPages(LockedPages&& other) noexcept;
    LockedPages& operator=(LockedPages&& other) noexcept;
    ~LockedPages();

    std::span<std::byte> bytes() const noexcept { return run; }
    bool pinned() const noexcept { return isPinned; } ///< false: usable, but may fault

    /// Maps taken from and given to the machine so far, for tests.
    static long systemCalls() noexcept;

private:
    std::span<std::byte> run;
    bool isPinned = false;
};

/// What `LockedPages` needs of the machine.
struct PageSource {
    struct Run {
        std::byte* first = nullptr; ///< null when the machine refuses
        std::size_t bytes = 0;      ///< whole pages
        bool pinned = false;
    };
    static Run map(std::size_t bytes);
    static void unmap(const Run& run) noexcept;
};

/// Asks for a working set large enough for the pinned pages; a refusal is no error.
void reserveWorkingSet(std::size_t minimumBytes, std::size_t maximumBytes);

} // namespace velorine
