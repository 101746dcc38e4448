#include "player/RunSettings.h"

#include "config/MemoryStore.h"
#include "config/NamedPresets.h"

#include <gtest/gtest.h>

#include <bit>

namespace velorine {
namespace {

constexpr float factoryTreble = 0.8953648F; ///< eq15

class RunSettingsTest : public testing::Test {
protected:
    RunSettingsTest() {
        user.store = std::make_unique<MemoryStore>();
        user.presets = std::make_unique<SubkeyPresets>(*user.store);
    }
    void store(const std::string& section, const std::string& name, std::uint32_t value) {
        user.store->set(keyPath(settingsRoot, section), name, value);
    }

    UserSettings user;
};

std::uint32_t bitsOf(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

TEST_F(RunSettingsTest, DefaultsWhereNothingIsStored) {
    RunSettings settings{user, {}};
    EXPECT_TRUE(settings.flag("Eq", "enable"));
    EXPECT_FALSE(settings.flag("Resample", "enable"));
    EXPECT_EQ(settings.number("Resample", "srate"), 48000.0);
}

TEST_F(RunSettingsTest, FactoryTuningStandsOverWhatIsStoredAndIsNotWritten) {
    store("Eq", "eq15", bitsOf(3.0F));
    store("Eq", "enable", 0);
    RunSettings settings{user, {}};
    EXPECT_NEAR(settings.number("Eq", "eq15"), static_cast<double>(factoryTreble), 1e-6);
    EXPECT_FALSE(settings.flag("Eq", "enable")) << "the user's own";
    EXPECT_EQ(user.store->dword(keyPath(settingsRoot, "Eq"), "eq15"), bitsOf(3.0F));
}

TEST_F(RunSettingsTest, ActivePresetStandsOverTheFactorys) {
    user.presets->save("mine", {{"eq15", bitsOf(2.0F)}});
    setActivePreset(*user.store, "mine");
    EXPECT_EQ((RunSettings{user, {}}.number("Eq", "eq15")), 2.0);
}

TEST_F(RunSettingsTest, CommandLineStandsOverAll) {
    store("Eq", "enable", 1);
    RunSettings settings{user, {{"Eq", "enable", 0, {}}, {"Eq", "eq15", bitsOf(1.5F), {}}}};
    EXPECT_FALSE(settings.flag("Eq", "enable"));
    EXPECT_EQ(settings.number("Eq", "eq15"), 1.5);
}

TEST_F(RunSettingsTest, ChainIsThatOfTheEngine) {
    store("Eq", "enable", 1);
    store("Resample", "enable", 1);
    store("Resample", "srate", bitsOf(96000.0F));
    store("Resample", "speed", bitsOf(1.25F));
    const RenderChain on = RunSettings{user, {}}.chain();
    EXPECT_EQ(on.kestrix, ChainStages::kestrix);
    EXPECT_EQ(on.outRate, ChainStages::resampler ? 96000 : 0);
    EXPECT_EQ(on.speed, ChainStages::resampler ? 1.25 : 1.0);

    const RenderChain off =
        RunSettings{user, {{"Eq", "enable", 0, {}}, {"Resample", "enable", 0, {}}}}.chain();
    EXPECT_FALSE(off.kestrix);
    EXPECT_EQ(off.outRate, 0);
    EXPECT_EQ(off.speed, 1.0);
}

} // namespace
} // namespace velorine
