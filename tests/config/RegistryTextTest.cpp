#include "config/RegistryText.h"

#include "config/EmbeddedPreset.h"
#include "config/MemoryStore.h"
#include "config/NarrowText.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine {

namespace {

using test::key;

std::span<const std::byte> bytesOf(std::string_view text) {
    return std::as_bytes(std::span{text.data(), text.size()});
}

const std::string ours = "[HKEY_CURRENT_USER\\Software\\Tolvane Developments\\Velorine\\Winamp";

class RegistryText : public testing::TestWithParam<test::StoreKind> {
protected:
    RegistryImport import(std::string_view text) {
        return importRegistryText(bytesOf(text), store, presets);
    }

    const test::StoresUnderTest under = GetParam().make();
    SettingsStore& store = *under.store;
    PresetStore& presets = *under.presets;
};

} // namespace

TEST_P(RegistryText, ExportIsWhatTheRegistrysEditorWrites) {
    store.set(key("General"), "Audio Device", std::string{"a \"b\" \\ \xC3\xA9"});
    store.set(key("Eq"), "headroom", 0x404CCCCDU);
    const auto text = exportRegistryText(store, presets);
    ASSERT_GT(text.size(), 2U);
    EXPECT_EQ(text[0], std::byte{0xFF});
    EXPECT_EQ(text[1], std::byte{0xFE});
    EXPECT_EQ(narrowText(text), "Windows Registry Editor Version 5.00\r\n\r\n" + ours +
                                    "]\r\n\r\n" + ours +
                                    "\\Eq]\r\n\"headroom\"=dword:404ccccd\r\n\r\n" + ours +
                                    "\\General]\r\n\"Audio Device\"=\"a \\\"b\\\" \\\\ \xC3\xA9\""
                                    "\r\n\r\n");
}

TEST_P(RegistryText, ExportAndImportMoveEverything) {
    applyPreset(store);
    store.set(key("General"), "Audio Device",
              std::string{"two\nlines, \"quoted\" \xF0\x9F\x8E\xB5"});
    store.set(key("General"), "Fade on seek", 0U);
    store.set(key("Mixer"), "antidelay", 0x80000000U);
    store.set(key("Someone's"), "own", 12U);
    ASSERT_TRUE(presets.save("late night", {{"lim0", 1}, {"headroom", 0x40000000}}));

    const std::string text = narrowText(exportRegistryText(store, presets));
    EXPECT_EQ(text.find("\\late night]"), text.rfind("\\late night]")); // once, in every store

    MemoryStore other;
    SubkeyPresets otherPresets{other};
    const RegistryImport done =
        importRegistryText(exportRegistryText(store, presets), other, otherPresets);
    EXPECT_TRUE(done.isExport);
    EXPECT_EQ(done.values, 108 + 4);
    EXPECT_EQ(done.presets, 1);
    EXPECT_TRUE(done.remarks.empty());
    for (const char* section : {"Eq", "General", "Mixer", "Someone's"})
        for (const SettingsEntry& entry : store.values(key(section)))
            EXPECT_EQ(other.value(key(section), entry.name), entry.value) << entry.name;

    const test::StoresUnderTest back = GetParam().make();
    importRegistryText(exportRegistryText(other, otherPresets), *back.store, *back.presets);
    EXPECT_EQ(back.store->value(key("General"), "Audio Device"),
              other.value(key("General"), "Audio Device"));
    EXPECT_EQ(back.store->values(key("Eq")).size(), 108U);
    ASSERT_TRUE(back.presets->load("late night"));
    EXPECT_EQ(back.presets->load("late night")->size(), 2U);
}

TEST_P(RegistryText, ImportTakesNarrowTexts) {
    const RegistryImport done =
        import("REGEDIT4\n\n; comment\n" + ours + "\\Eq]\n  \"lim0\"=dword:3F800000  \n" + ours +
               "\\General]\r\n\"Audio Device\"=\"x\"\r\n\"flush_ms\"=-\r\n");
    EXPECT_TRUE(done.isExport);
    EXPECT_EQ(done.values, 3);
    EXPECT_EQ(store.dword(key("Eq"), "lim0"), 0x3F800000U);
    EXPECT_EQ(store.text(key("General"), "Audio Device"), "x");
}

TEST_P(RegistryText, ImportReadsWrappedBytes) {
    const RegistryImport done = import("Windows Registry Editor Version 5.00\r\n" + ours +
                                       "\\General]\r\n\"Audio Device\"=hex(1):61,00,\\\r\n"
                                       "  62,00,00,00\r\n\"flush_ms\"=dword:00000050\r\n");
    EXPECT_TRUE(done.remarks.empty());
    EXPECT_EQ(store.text(key("General"), "Audio Device"), "ab");
    EXPECT_EQ(store.dword(key("General"), "flush_ms"), 80U);
}

TEST_P(RegistryText, ImportKeepsOutOfOtherKeys) {
    const RegistryImport done = import(
        "Windows Registry Editor Version 5.00\n"
        "[HKEY_CURRENT_USER\\Software\\Tolvane Developments\\Orvex\\Winamp\\Eq]\n\"lim0\"=dword:1\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Tolvane Developments\\Velorine\\Winamp\\Eq]\n"
        "\"lim1\"=dword:00000001\n" +
        ours + "2\\Eq]\n\"lim2\"=dword:00000001\n[-" + ours.substr(1) +
        "\\Eq]\n\"lim3\"=dword:1\n");
    EXPECT_TRUE(done.isExport);
    EXPECT_EQ(done.values, 0);
    EXPECT_TRUE(store.subkeys(settingsRoot).empty());
    ASSERT_EQ(done.remarks.size(), 4U);
    EXPECT_EQ(done.remarks[0].line, 2);
    EXPECT_EQ(done.remarks[3].line, 8);
}

TEST_P(RegistryText, ImportFindsTheRootInAnySpelling) {
    const RegistryImport done =
        import("REGEDIT4\n[hkey_current_user\\SOFTWARE\\tolvane developments\\Velorine\\WINAMP\\Eq]"
               "\n\"lim0\"=dword:00000001\n");
    EXPECT_EQ(done.values, 1);
    EXPECT_EQ(store.dword(key("Eq"), "lim0"), 1U);
}

TEST_P(RegistryText, ImportNamesLinesItCanNotUse) {
    const RegistryImport done = import("REGEDIT4\n" + ours +
                                       "\\Eq]\n\"lim0\"=hex:01,02,\\\n  03\n\"lim1\"=dword:zz\n"
                                       "nonsense\n\"lim2\"=\"open\n\"lim3\"=dword:00000001\n");
    EXPECT_EQ(done.values, 1);
    ASSERT_EQ(done.remarks.size(), 4U);
    EXPECT_EQ(done.remarks[0].line, 4); // where the wrapped value ends
    EXPECT_EQ(done.remarks[1].line, 5);
    EXPECT_EQ(done.remarks[2].line, 6);
    EXPECT_EQ(done.remarks[3].line, 7);
}

TEST_P(RegistryText, ImportRefusesOtherFiles) {
    for (const char* text : {"", "\xFF\xFE", "[Eq]\nlim0 = 1.0\n", "RIFF\x10", "\n\n"}) {
        const RegistryImport done = import(text);
        EXPECT_FALSE(done.isExport) << text;
        EXPECT_EQ(done.values, 0);
    }
    EXPECT_TRUE(store.subkeys(settingsRoot).empty());
}

TEST(RegistryImports, SurviveDamage) {
    MemoryStore memory;
    SubkeyPresets memoryPresets{memory};
    applyPreset(memory);
    memory.set(key("General"), "Audio Device", std::string{"line\nbreak"});
    const std::vector<std::byte> sound = exportRegistryText(memory, memoryPresets);
    std::mt19937 random{5};
    for (int round = 0; round < 300; ++round) {
        std::vector<std::byte> damaged = sound;
        for (auto hits = 1 + random() % 20; hits > 0; --hits)
            damaged[random() % damaged.size()] = static_cast<std::byte>(random());
        damaged.resize(random() % damaged.size());
        MemoryStore target;
        SubkeyPresets targetPresets{target};
        importRegistryText(damaged, target, targetPresets);
        for (const std::string& name : target.subkeys("Software"))
            EXPECT_EQ(name, "Tolvane Developments");
    }
}

INSTANTIATE_TEST_SUITE_P(Every, RegistryText, testing::ValuesIn(test::storeKinds()),
                         [](const auto& kind) { return kind.param.name; });

} // namespace velorine
