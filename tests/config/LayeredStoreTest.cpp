#include "config/LayeredStore.h"

#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

namespace velorine {

namespace {
using test::key;
}

TEST(OverlayStore, StandsOverTheStore) {
    MemoryStore below;
    OverlayStore overlay{below};
    below.set(key("Eq"), "lim0", 1U);
    overlay.put(key("Eq"), "lim0", 2U);
    overlay.put(key("Eq"), "lim1", 3U);
    EXPECT_EQ(overlay.dword(key("Eq"), "lim0"), 2U);
    EXPECT_EQ(overlay.dword(key("Eq"), "lim1"), 3U);
    EXPECT_TRUE(overlay.exists(key("Eq"), "lim1"));
    EXPECT_EQ(overlay.values(key("Eq")), (std::vector<SettingsEntry>{{"lim0", 2U}, {"lim1", 3U}}));
}

TEST(OverlayStore, IsNeverWrittenThrough) {
    MemoryStore below;
    OverlayStore overlay{below};
    below.set(key("Eq"), "headroom", 1U);
    overlay.put(key("Eq"), "headroom", 2U);
    overlay.put(key("Output"), "bits", 16U);

    // As at the engine's end: all that it read is saved.
    for (const auto& [section, name] : {std::pair{"Eq", "headroom"}, {"Output", "bits"}}) {
        std::uint32_t value = 0;
        RegistryNode{overlay, RegistryNode::read}.exchangeDword(section, name, value);
        RegistryNode{overlay, RegistryNode::write}.exchangeDword(section, name, value);
    }
    overlay.set(key("Eq"), "headroom", 9U);
    overlay.erase(key("Eq"), "headroom");
    EXPECT_EQ(below.dword(key("Eq"), "headroom"), 1U);
    EXPECT_FALSE(below.exists(key("Output"), "bits"));
    EXPECT_EQ(overlay.dword(key("Eq"), "headroom"), 2U);
}

TEST(OverlayStore, LetsEverythingElsePass) {
    MemoryStore below;
    OverlayStore overlay{below};
    overlay.put(key("Eq"), "headroom", 2U);
    overlay.set(key("Eq"), "eqall", 3U);
    EXPECT_EQ(below.dword(key("Eq"), "eqall"), 3U);
    overlay.erase(key("Eq"), "eqall");
    EXPECT_FALSE(below.exists(key("Eq"), "eqall"));
}

TEST(OverlayStore, SeesWhatIsWrittenBelowAfterwards) {
    MemoryStore below;
    OverlayStore overlay{below};
    overlay.put(key("Eq"), "headroom", 2U);
    below.set(key("Eq"), "headroom", 7U);
    below.set(key("Eq"), "eqall", 8U);
    EXPECT_EQ(overlay.dword(key("Eq"), "headroom"), 2U);
    EXPECT_EQ(overlay.dword(key("Eq"), "eqall"), 8U);
}

TEST(OverlayStore, WithdrawnValueIsTheStoresAgain) {
    MemoryStore below;
    OverlayStore overlay{below};
    overlay.put(key("Eq"), "headroom", 2U);
    overlay.withdraw(key("Eq"), "headroom");
    EXPECT_FALSE(overlay.exists(key("Eq"), "headroom"));
    overlay.set(key("Eq"), "headroom", 4U);
    EXPECT_EQ(below.dword(key("Eq"), "headroom"), 4U);
}

TEST(CopyOnWriteStore, LeavesTheStoreBelowAsItIs) {
    MemoryStore below;
    below.set(key("Eq"), "lim0", 1U);
    below.set(key("Eq"), "lim1", 2U);
    CopyOnWriteStore store{below};
    store.set(key("Eq"), "lim0", 7U);
    store.set(key("Eq"), "lim2", 8U);
    store.erase(key("Eq"), "lim1");
    EXPECT_EQ(store.values(key("Eq")), (std::vector<SettingsEntry>{{"lim0", 7U}, {"lim2", 8U}}));
    EXPECT_FALSE(store.exists(key("Eq"), "lim1"));
    store.eraseKey(key("Eq"));
    EXPECT_TRUE(store.values(key("Eq")).empty());
    EXPECT_TRUE(store.subkeys(settingsRoot).empty());
    EXPECT_EQ(below.values(key("Eq")), (std::vector<SettingsEntry>{{"lim0", 1U}, {"lim1", 2U}}));
}

} // namespace velorine
