#include "config/win32/RegistryStore.h"

#include "config/KeyTable.h"
#include "config/RegistryNode.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <vector>

namespace velorine::test {
namespace {

/// A section of ours in the user's registry, as others may have left it.
class ForeignValues : public testing::Test {
protected:
    ForeignValues() : path(keyPath(settingsRoot, "Test")) {
        EXPECT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, path.c_str(), &key), ERROR_SUCCESS);
    }
    ~ForeignValues() override {
        RegCloseKey(key);
        RegDeleteKeyA(HKEY_CURRENT_USER, path.c_str());
    }

    void put(const char* name, DWORD type, const std::vector<BYTE>& bytes) {
        EXPECT_EQ(RegSetValueExA(key, name, 0, type, bytes.data(), bytes.size()), ERROR_SUCCESS);
    }

    const std::string path;
    HKEY key = nullptr;
    RegistryStore store;
};

TEST_F(ForeignValues, OfOtherTypesLeaveTheDefault) {
    put("binary", REG_BINARY, {1, 0, 0, 0});
    put("qword", REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0});
    put("expand", REG_EXPAND_SZ, {'1', 0});
    put("multi", REG_MULTI_SZ, {'1', 0, 0});
    put("text", REG_SZ, {'1', 0});
    for (const char* const name : {"binary", "qword", "expand", "multi", "text", "absent"}) {
        RegistryNode node{store, RegistryNode::read};
        int value = 77;
        node.exchangeInt("Test", name, value);
        EXPECT_EQ(value, 77) << name;
    }
    EXPECT_TRUE(store.exists(path, "binary"));
    EXPECT_FALSE(store.exists(path, "absent"));
}

TEST_F(ForeignValues, ADwordOfTheWrongSizeIsNone) {
    put("short", REG_DWORD, {1, 0});
    EXPECT_EQ(store.value(path, "short"), std::nullopt);
}

TEST_F(ForeignValues, TextIsReadWithAndWithoutItsEnd) {
    put("ended", REG_SZ, {'o', 'u', 't', 0});
    put("open", REG_SZ, {'o', 'u', 't'});
    put("twice", REG_SZ, {'o', 'u', 't', 0, 'x', 0});
    put("empty", REG_SZ, {});
    for (const char* const name : {"ended", "open", "twice"})
        EXPECT_EQ(std::get<std::string>(*store.value(path, name)), "out") << name;
    EXPECT_EQ(std::get<std::string>(*store.value(path, "empty")), "");
}

TEST_F(ForeignValues, LongTextComesWhole) {
    const std::string text(5000, 'x');
    store.set(path, "long", text);
    EXPECT_EQ(std::get<std::string>(*store.value(path, "long")), text);
}

} // namespace
} // namespace velorine::test
