#include "player/AudioFile.h"

#include <cstdio>
#include <vector>

/// decode_file FILE: decodes as the program does, and throws the samples away.
int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        velorine::AudioFile file{argv[1]};
        std::vector<std::byte> block(std::size_t{8} * 9216);
        while (file.read(block) > 0) {
        }
        return 0;
    } catch (const velorine::AudioFileError& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
}
