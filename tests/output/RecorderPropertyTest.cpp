#include "tests/output/RecorderFixture.h"

#include <map>
#include <random>

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::pattern;

/// What a recording should hold, by the simplest means.
struct Model {
    SampleFormat format;
    Bytes data;
    bool exists = false;
};

class RecorderProperty : public test::RecorderFixture,
                         public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, RecorderProperty, testing::Range(1u, 9u));

TEST_P(RecorderProperty, HeaderAndDataAreRightAtEveryClose) {
    std::mt19937 random{GetParam()};
    const auto below = [&random](unsigned limit) { return random() % limit; };
    const auto anyFormat = [&below] {
        constexpr int rates[] = {8000, 44100, 48000, 192000};
        return SampleFormat{static_cast<int>(below(7)), static_cast<int>(below(8) + 1),
                            rates[below(4)]};
    };

    std::map<std::string, Model> models;
    std::string name = "a.wav";
    SampleFormat format{sampleType::int16, 2, 44100};
    std::size_t written = 0;
    std::size_t rewindable = 0; // bytes since the path was set
    bool overwrite = false;

    for (int step = 0; step < 4000; ++step) {
        Model& model = models[name];
        const auto frameBytes = static_cast<std::size_t>(bytesPerFrame(format));
        switch (below(8)) {
        default: {
            const Bytes block = pattern(below(300) * frameBytes, written);
            written += block.size();
            write(block);
            if (overwrite || model.format != format || !model.exists) {
                model.data.clear();
                rewindable = 0;
            }
            model.format = format;
            model.exists = true;
            overwrite = false;
            model.data.insert(model.data.end(), block.begin(), block.end());
            rewindable += block.size();
            break;
        }
        case 0:
            recorder.close();
            if (!model.exists) break;
            EXPECT_EQ(dataOf(files[name]), model.data) << "step " << step;
            EXPECT_EQ(test::headerFault(files[name], model.format.type,
                                        static_cast<std::uint32_t>(model.format.channels),
                                        static_cast<std::uint32_t>(model.format.rate)),
                      "")
                << "step " << step;
            break;
        case 1: {
            if (model.format != format) break; // what it takes back is in the stream's format
            const std::size_t frames = below(400);
            recorder.rewind(static_cast<std::int64_t>(frames));
            const std::size_t bytes = std::min(frames * frameBytes, rewindable);
            rewindable -= bytes;
            model.data.resize(model.data.size() - bytes);
            break;
        }
        case 2:
            if (below(4) == 0) format = anyFormat();
            streamIs(format);
            break;
        case 3:
            if (below(4) != 0) break;
            name = std::to_string(below(5)) + ".wav";
            overwrite = below(3) == 0;
            rewindable = 0;
            recorder.setPath(name, overwrite);
            break;
        }
        if (testing::Test::HasFailure()) return;
    }
    EXPECT_FALSE(recorder.failed());
}

} // namespace
} // namespace velorine
