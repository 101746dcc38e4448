#include "config/RegistryNode.h"

#include "config/KeyTable.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace velorine {

namespace {

using test::key;

class RegistryNodes : public testing::TestWithParam<test::StoreKind> {
protected:
    const test::StoresUnderTest under = GetParam().make();
    SettingsStore& store = *under.store;
    RegistryNode reader{store, RegistryNode::read};
    RegistryNode writer{store, RegistryNode::write};
};

/// Remembers which keys a node asks for.
class KeyRecorder final : public SettingsStore {
public:
    std::optional<SettingsValue> value(std::string_view k, std::string_view) override {
        keys.emplace_back(k);
        return std::nullopt;
    }
    void set(std::string_view k, std::string_view, const SettingsValue&) override {
        keys.emplace_back(k);
    }
    void erase(std::string_view, std::string_view) override {}
    std::vector<SettingsEntry> values(std::string_view) override { return {}; }
    std::vector<std::string> subkeys(std::string_view) override { return {}; }
    void createKey(std::string_view k) override { created.emplace_back(k); }
    void eraseKey(std::string_view) override {}

    std::vector<std::string> keys;
    std::vector<std::string> created;
};

} // namespace

TEST(RegistryNode, AsksBelowTheRoot) {
    KeyRecorder store;
    RegistryNode node{store, RegistryNode::read};
    std::uint32_t value = 0;
    node.exchangeDword("Eq", "lim0", value);
    node.exchangeDword("", "lim0", value);
    node.exchangeDword("Eq\\", "lim0", value);
    node.mode = RegistryNode::write;
    node.exchangeDword("Eq\\", "lim0", value);
    const std::string root = "Software\\Tolvane Developments\\Velorine\\Winamp";
    EXPECT_EQ(store.keys,
              (std::vector<std::string>{root + "\\Eq", root, root + "\\Eq", root + "\\Eq"}));
}

TEST(RegistryNode, CreatesTheKeyOfATypedValueThatItWrites) {
    KeyRecorder store;
    RegistryNode node{store, RegistryNode::write};
    bool flag = true;
    double number = 0.5;
    std::string text;
    node.exchangeBool("Mixer", "enable", flag);
    node.exchangeDouble("Resample", "srate", number);
    node.exchangeString("General", 10, "Audio Device", text);
    EXPECT_EQ(store.created,
              (std::vector<std::string>{key("Mixer"), key("Resample"), key("General")}));
    node.mode = RegistryNode::read;
    node.exchangeBool("Eq", "enable", flag);
    EXPECT_EQ(store.created.size(), 3U);
}

TEST_P(RegistryNodes, LeaveTheDefaultWhereNothingIsStored) {
    std::uint32_t dword = 7;
    bool flag = true;
    std::int32_t number = -3;
    float real = 0.45F;
    double wide = 0.5;
    std::string text = "as it was";
    reader.exchangeDword("Eq", "lim0", dword);
    reader.exchangeBool("Eq", "enable", flag);
    reader.exchangeInt("Output", "bits", number);
    reader.exchangeFloat("Eq", "headroom", real);
    reader.exchangeDouble("Resample", "rolloff", wide);
    reader.exchangeString("General", 100, "Audio Device", text);
    EXPECT_EQ(dword, 7U);
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, -3);
    EXPECT_EQ(real, 0.45F);
    EXPECT_EQ(wide, 0.5);
    EXPECT_EQ(text, "as it was");
}

TEST_P(RegistryNodes, LeaveTheDefaultWhereTheTypeIsWrong) {
    store.set(key("Eq"), "headroom", std::string{"loud"});
    store.set(key("Eq"), "enable", std::string{"true"});
    store.set(key("Output"), "bits", std::string{"16"});
    store.set(key("General"), "Audio Device", 16U);
    float headroom = 6.0F;
    bool enable = false;
    std::int32_t bits = 1;
    std::string device = "None";
    reader.exchangeFloat("Eq", "headroom", headroom);
    reader.exchangeBool("Eq", "enable", enable);
    reader.exchangeInt("Output", "bits", bits);
    reader.exchangeString("General", 100, "Audio Device", device);
    EXPECT_EQ(headroom, 6.0F);
    EXPECT_FALSE(enable);
    EXPECT_EQ(bits, 1);
    EXPECT_EQ(device, "None");
    EXPECT_TRUE(reader.valueExists("Eq", "headroom"));
}

TEST_P(RegistryNodes, TwoIsTrueAndComesBackAsOne) {
    store.set(key("Mixer"), "enable", 2U);
    bool enable = false;
    reader.exchangeBool("Mixer", "enable", enable);
    EXPECT_TRUE(enable);
    writer.exchangeBool("Mixer", "enable", enable);
    EXPECT_EQ(store.dword(key("Mixer"), "enable"), 1U);
}

TEST_P(RegistryNodes, ValueExistsNeedsKeyAndValue) {
    EXPECT_FALSE(reader.valueExists("Eq", "enable"));
    store.set(key("Eq"), "magnitude", 0U);
    EXPECT_FALSE(reader.valueExists("Eq", "enable"));
    store.set(key("Eq"), "enable", 0U);
    EXPECT_TRUE(reader.valueExists("Eq", "enable"));
    EXPECT_TRUE(reader.valueExists("Eq\\", "enable"));
}

TEST_P(RegistryNodes, NamesAreExact) {
    store.set(key("General"), "Fade on seek", 0U);
    bool fade = true;
    reader.exchangeBool("General", "Fade on stop", fade);
    EXPECT_TRUE(fade);
    reader.exchangeBool("General", "Fade on seek", fade);
    EXPECT_FALSE(fade);
}

TEST_P(RegistryNodes, DoublesAreNarrowedToSingles) {
    double delay = 0.05;
    writer.exchangeDouble("Mixer", "antidelay", delay);
    EXPECT_EQ(store.dword(key("Mixer"), "antidelay"), 0x3D4CCCCDU); // 0.05 to the nearest single
    double read = 0.0;
    reader.exchangeDouble("Mixer", "antidelay", read);
    EXPECT_EQ(read, 0.0500000007450580596923828125); // that single, exactly
}

TEST_P(RegistryNodes, TextThatDoesNotFitLeavesTheDefault) {
    store.set(key("General"), "Audio Device", std::string{"12345"});
    std::string device = "as it was";
    reader.exchangeString("General", 5, "Audio Device", device);
    EXPECT_EQ(device, "as it was");
    reader.exchangeString("General", 6, "Audio Device", device);
    EXPECT_EQ(device, "12345");
}

/// Any value of any setting, dwords of any bits among them.
TEST_P(RegistryNodes, ReadWhatTheyWrote) {
    std::mt19937 random{4711};
    const auto keys = settingKeys();
    for (int round = 0; round < 3; ++round) {
        std::vector<std::uint32_t> written;
        {
            const SettingsBatch batch{store};
            for (const SettingKey& setting : keys) {
                auto bits = static_cast<std::uint32_t>(random());
                if (setting.kind == SettingKind::real && std::isnan(std::bit_cast<float>(bits)))
                    bits = 0x7FC00000; // what a nan carries besides its sign is no number
                if (setting.kind == SettingKind::boolean) bits %= 4;
                written.push_back(bits);
                if (setting.kind == SettingKind::text) {
                    std::string text(random() % 20, '\0');
                    for (char& c : text)
                        c = static_cast<char>(' ' + random() % 95);
                    writer.exchangeString(setting.section, 100, setting.name, text);
                    std::string read;
                    reader.exchangeString(setting.section, 100, setting.name, read);
                    EXPECT_EQ(read, text) << setting.name;
                } else {
                    writer.exchangeDword(setting.section, setting.name, bits);
                }
            }
        }
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (keys[i].kind == SettingKind::text) continue;
            std::uint32_t read = ~written[i];
            reader.exchangeDword(keys[i].section, keys[i].name, read);
            EXPECT_EQ(read, written[i]) << keys[i].section << "/" << keys[i].name;
        }
    }
}

TEST_P(RegistryNodes, ReadWhatTheTypedExchangesWrote) {
    std::mt19937 random{99};
    for (int round = 0; round < 20; ++round) {
        bool flag = random() % 2 == 0;
        auto number = static_cast<std::int32_t>(random());
        float real = std::ldexp(static_cast<float>(random()) - 2147483648.0F,
                                static_cast<int>(random() % 200) - 130);
        double wide = static_cast<double>(std::nextafter(real, 1.0F));
        const bool flagWas = flag;
        const std::int32_t numberWas = number;
        const float realWas = real;
        const double wideWas = wide;
        {
            const SettingsBatch batch{store};
            writer.exchangeBool("Eq", "softclip", flag);
            writer.exchangeInt("Output", "bits", number);
            writer.exchangeFloat("Eq", "headroom", real);
            writer.exchangeDouble("Resample", "stopband", wide);
        }
        flag = !flag;
        number = 0;
        real = 0.0F;
        wide = 0.0;
        reader.exchangeBool("Eq", "softclip", flag);
        reader.exchangeInt("Output", "bits", number);
        reader.exchangeFloat("Eq", "headroom", real);
        reader.exchangeDouble("Resample", "stopband", wide);
        EXPECT_EQ(flag, flagWas);
        EXPECT_EQ(number, numberWas);
        EXPECT_EQ(real, realWas);
        EXPECT_EQ(wide, wideWas);
    }
}

INSTANTIATE_TEST_SUITE_P(Every, RegistryNodes, testing::ValuesIn(test::storeKinds()),
                         [](const auto& kind) { return kind.param.name; });

} // namespace velorine
