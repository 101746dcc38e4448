#pragma once

#include <string>
#include <string_view>

namespace velorine {

/// Path of the recording of one track: in the recordings folder, under the track's own name.
///
/// @param playlistFile  as the host's playlist has it: a path with either kind of slash, or a URL
/// @return recordings folder + name without folders and extension + "_velorine.wav"
std::string trackRecordingPath(std::string_view playlistFile);

} // namespace velorine
