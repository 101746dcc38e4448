#pragma once

#include <memory>

namespace velorine {

/// Gives a COM interface back, once.
struct ComRelease {
    template <typename Interface>
    void operator()(Interface* object) const noexcept {
        object->Release();
    }
};

template <typename Interface>
using ComPointer = std::unique_ptr<Interface, ComRelease>;

} // namespace velorine
