#pragma once

namespace velorine {

/// A person's wish that the program ends: SIGINT, SIGTERM or SIGHUP.
namespace interruption {

/// From now on the first of them is noted; a second one ends the process as it would by default.
void watch();

bool requested() noexcept; ///< any thread

} // namespace interruption

} // namespace velorine
