#pragma once

#include <string>

namespace velorine::test {

/// Loads a plug-in's library; null when that fails.
void* openPlugin(const std::string& path);

/// A function of a library; null when it has none of that name.
void* functionOf(void* library, const char* name);

/// Whether a library is in memory.
bool isLoaded(const std::string& path);

} // namespace velorine::test
