#pragma once

namespace velorine {

/// Whether the machine may fall asleep. Set by the playback thread alone.
class KeepAwake {
public:
    virtual ~KeepAwake() = default;

    /// True: the system is required until further notice. False: it is not.
    virtual void require(bool awake) = 0;

    static KeepAwake& native();
};

} // namespace velorine
