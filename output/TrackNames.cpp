#include "output/TrackNames.h"

#include "output/RecordingsFolder.h"

namespace velorine {

std::string trackRecordingPath(std::string_view playlistFile) {
    const std::size_t slash = playlistFile.find_last_of("/\\");
    std::string_view base =
        slash == std::string_view::npos ? playlistFile : playlistFile.substr(slash + 1);
    base = base.substr(0, base.rfind('.'));

    return recordingsFolder().append(base).append("_velorine.wav");
}

} // namespace velorine
