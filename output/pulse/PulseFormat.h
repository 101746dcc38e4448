#pragma once

#include "output/SoundSystem.h"
#include "output/pulse/ChannelGains.h"
#include "output/pulse/PulseLibrary.h"
#include "output/pulse/PulseStream.h"

#include <optional>
#include <vector>

namespace velorine {

/// What the server calls a format of ours. Channels come in the order of WAVE files.
/// @return none where it has no such format
std::optional<PulseStream::Shape> shapeOf(const PulseLibrary& pulse,
                                          const SoundSystem::Format& format);

/// The sides that the channels' speakers stand on, in the channels' order.
std::vector<ChannelGains::Side> sidesOf(const pa_channel_map& map);

} // namespace velorine
