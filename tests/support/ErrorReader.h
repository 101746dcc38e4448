#pragma once

namespace velorine::test {

/// A person at the machine, for the rest of the process: reads each error box aloud on stderr and
/// sends it away. Nothing to do where errors go to stderr anyway.
void readErrorsAloud();

} // namespace velorine::test
