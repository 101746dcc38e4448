#include "player/DeviceList.h"

#include "output/SoundSystem.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

class TwoDevices final : public SoundSystem {
public:
    std::vector<Device> devices() override {
        return {{"Primary Sound Driver", ""}, {"Headphones", "{1234}"}};
    }
    bool connected() const override { return false; }
    bool connect(std::string&, std::string&) override { return false; }
    void disconnect() override {}
    std::unique_ptr<SoundBuffer> createBuffer(const Format&) override { return nullptr; }
};

TEST(DeviceList, NullTargetIsAlwaysThereAndLast) {
    EXPECT_EQ(deviceList(nullptr), "None\tnull target: plays in real time, and silently\n");
    TwoDevices sound;
    EXPECT_EQ(deviceList(&sound),
              "Primary Sound Driver\tdefault device\nHeadphones\tdevice\n" + deviceList(nullptr));
}

} // namespace
} // namespace velorine
