// The two views of the machine's real registry. The key contains this process's id, so that no other process uses it.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "diagnostics/registry_key.h"

namespace {

using diagnostics::RegistryKey;

class RegistryView : public testing::Test {
  protected:
    RegistryView() { Clear(); }
    ~RegistryView() override { Clear(); }

    void SetUp() override {
        if (!Make(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY)) {
            GTEST_SKIP() << "needs the right to write the machine's registry";
        }
        Clear();
        // Where both views show the same key there is nothing to test.
        Store(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "64");
        ASSERT_FALSE(Has(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY));
        Clear();
    }

    bool Make(HKEY hive, REGSAM view) const {
        HKEY key = nullptr;
        if (RegCreateKeyExA(hive, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS | view, nullptr,
                            &key, nullptr) != ERROR_SUCCESS) {
            return false;
        }
        RegCloseKey(key);
        return true;
    }

    void Store(HKEY hive, REGSAM view, const std::string& text) const {
        ASSERT_TRUE(Make(hive, view));
        HKEY key = nullptr;
        ASSERT_EQ(RegOpenKeyExA(hive, path.c_str(), 0, KEY_ALL_ACCESS | view, &key), ERROR_SUCCESS);
        EXPECT_EQ(RegSetValueExA(key, "DebugLevel", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                 static_cast<DWORD>(text.size() + 1)),
                  ERROR_SUCCESS);
        RegCloseKey(key);
    }

    bool Has(HKEY hive, REGSAM view) const {
        HKEY key = nullptr;
        if (RegOpenKeyExA(hive, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS) {
            return false;
        }
        RegCloseKey(key);
        return true;
    }

    void Clear() const {
        for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            for (const REGSAM view : {REGSAM{KEY_WOW64_64KEY}, REGSAM{KEY_WOW64_32KEY}}) {
                RegDeleteKeyExA(hive, path.c_str(), view, 0);
            }
        }
    }

    const std::string path = "SOFTWARE\\vexlane-view-test-" + std::to_string(GetCurrentProcessId());
};

TEST_F(RegistryView, AValueOf32BitProgramsIsFound) {
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, "32");
    EXPECT_EQ(RegistryKey(path).ReadString("DebugLevel"), "32");
    EXPECT_FALSE(Has(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY)) << "no key is created where one was found";
}

TEST_F(RegistryView, AValueOf32BitProgramsIsUnderTheirNode) {
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, "32");
    std::string node = path;
    node.insert(node.find('\\'), "\\Wow6432Node");
    char text[8] = {};
    DWORD size = sizeof(text);
    EXPECT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, node.c_str(), "DebugLevel", RRF_RT_REG_SZ, nullptr, text, &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(text, "32");
}

TEST_F(RegistryView, AValueOf64BitProgramsIsNotFoundByOpening) {
    // With a key in the user's hive no key is created, so the key of 64-bit programs is not opened that way either.
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "64");
    Store(HKEY_CURRENT_USER, KEY_WOW64_32KEY, "user");
    EXPECT_EQ(RegistryKey(path).ReadString("DebugLevel"), "user");
}

TEST_F(RegistryView, TheValueOf32BitProgramsIsReadWhenBothViewsHaveOne) {
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, "32");
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "64");
    EXPECT_EQ(RegistryKey(path).ReadString("DebugLevel"), "32");
}

TEST_F(RegistryView, AKeyIsCreatedAmongThoseOf64BitPrograms) {
    EXPECT_TRUE(RegistryKey(path).IsOpen());
    EXPECT_TRUE(Has(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY));
    EXPECT_FALSE(Has(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY));
    EXPECT_FALSE(Has(HKEY_CURRENT_USER, KEY_WOW64_64KEY));
}

// Opening never finds the created key, but creating it again does.
TEST_F(RegistryView, ACreatedKeyIsReadByCreatingItAgain) {
    EXPECT_EQ(RegistryKey(path).ReadString("DebugLevel"), "");
    Store(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "64");
    EXPECT_EQ(RegistryKey(path).ReadString("DebugLevel"), "64");
}

}  // namespace
