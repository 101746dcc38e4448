#include "foundation/FixedString.h"

#include "foundation/Memory.h"

#include <cstring>

namespace velorine {

FixedString& FixedString::operator=(const FixedString& other) {
    if (this != &other) assign(other.view());
    return *this;
}

FixedString::~FixedString() {
    release();
}

void FixedString::release() noexcept {
    memFree(heap);
    heap = nullptr;
    capacity = 0;
}

void FixedString::assign(std::string_view text) {
    const auto wanted = static_cast<std::int32_t>(text.size()) + 1;
    if (wanted <= inlineLimit) {
        std::array<char, 27> copy{};
        if (!text.empty()) std::memcpy(copy.data(), text.data(), text.size());
        release();
        inlineText = copy;
        isInline = true;
    } else {
        auto* const grown = static_cast<char*>(memAlloc(static_cast<std::size_t>(wanted)));
        std::memcpy(grown, text.data(), text.size());
        grown[text.size()] = '\0';
        release();
        heap = grown;
        capacity = wanted;
        isInline = false;
    }
    length = wanted;
}

} // namespace velorine
