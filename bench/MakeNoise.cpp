#include <sndfile.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

/// make_noise FILE SECONDS: 44.1 kHz 16-bit stereo noise, the same at every run.
int main(int argc, char** argv) {
    if (argc != 3) return 2;
    constexpr int rate = 44100;
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(argv[1], SFM_WRITE, &info);
    if (!file) return 1;

    std::mt19937 random{1};
    std::vector<short> second(std::size_t{2} * rate);
    for (int i = std::atoi(argv[2]); i > 0; --i) {
        for (short& sample : second)
            sample = static_cast<short>(static_cast<int>(random() >> 17) - 16384);
        if (sf_writef_short(file, second.data(), rate) != rate) return 1;
    }
    return sf_close(file) == 0 ? 0 : 1;
}
