#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace velorine {

/// Text of the system's records: short texts stay inside the object, longer ones go to the heap.
/// Always ends with a zero byte. Guarded by its owner.
class FixedString {
public:
    FixedString() = default;
    FixedString(std::string_view text) { assign(text); } // NOLINT(google-explicit-constructor)
    FixedString(const FixedString& other) { assign(other.view()); }
    FixedString& operator=(const FixedString& other);
    FixedString& operator=(std::string_view text) {
        assign(text);
        return *this;
    }
    ~FixedString();

    void assign(std::string_view text);

    std::string_view view() const noexcept {
        return {c_str(), static_cast<std::size_t>(length - 1)};
    }
    const char* c_str() const noexcept { return isInline ? inlineText.data() : heap; }
    bool empty() const noexcept { return length <= 1; }
    bool storedInline() const noexcept { return isInline; }

    friend bool operator==(const FixedString& a, std::string_view b) { return a.view() == b; }

private:
    static constexpr std::int32_t inlineLimit = 25; ///< bytes, with the terminating zero

    void release() noexcept;

    char* heap = nullptr;
    bool isInline = true;
    std::array<char, 27> inlineText{};
    std::int32_t capacity = 0; ///< bytes on the heap
    std::int32_t length = 1;   ///< bytes, with the terminating zero
};

} // namespace velorine
