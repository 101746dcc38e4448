#pragma once

#include <windows.h>

namespace velorine {

/// The module that this code is in, which isn't the process's own where it is a library.
inline HMODULE ownLibrary() {
    HMODULE own = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                           GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&ownLibrary), &own);
    return own;
}

} // namespace velorine
