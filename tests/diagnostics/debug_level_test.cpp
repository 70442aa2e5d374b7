// The level from a real registry under a private key.

#include <gtest/gtest.h>

#include <string>

#include "diagnostics/debug_level.h"
#include "diagnostics/registry_key.h"
#include "tests/support/scratch_registry.h"

namespace {

using diagnostics::ReadDebugLevel;
using diagnostics::RegistryKey;
using test_support::ScratchRegistry;

constexpr char keyPath[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr auto machine = platform::RegistryHive::LocalMachine;
constexpr auto user = platform::RegistryHive::CurrentUser;

class StoredDebugLevel : public testing::Test {
  protected:
    void Store(platform::RegistryHive hive, const std::string& text) {
        registry.StoreText(hive, keyPath, "DebugLevel", text);
    }

    ScratchRegistry registry;
};

TEST_F(StoredDebugLevel, OfTheMachineHiveIsRead) {
    Store(machine, "3");
    EXPECT_EQ(ReadDebugLevel(), 3);
    EXPECT_TRUE(registry.IsEmpty(user, ""));
}

TEST_F(StoredDebugLevel, OfTheUserHiveIsReadWhenTheMachineHiveHasNoKey) {
    Store(user, "-5");
    EXPECT_EQ(ReadDebugLevel(), -5);
    EXPECT_TRUE(registry.IsEmpty(machine, ""));
}

TEST_F(StoredDebugLevel, OfTheMachineHiveTakesPrecedence) {
    Store(machine, "1");
    Store(user, "2");
    EXPECT_EQ(ReadDebugLevel(), 1);
}

TEST_F(StoredDebugLevel, AKeyWithoutTheValueInTheMachineHiveStillTakesPrecedence) {
    registry.MakeKey(machine, keyPath);
    Store(user, "2");
    EXPECT_EQ(ReadDebugLevel(), 0);
}

TEST_F(StoredDebugLevel, AMissingKeyIsCreatedInTheMachineHiveAndStaysEmpty) {
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_TRUE(registry.HasKey(machine, keyPath));
    EXPECT_TRUE(registry.IsEmpty(machine, keyPath));
    EXPECT_TRUE(registry.IsEmpty(user, ""));
}

TEST_F(StoredDebugLevel, AMissingKeyIsCreatedInTheUserHiveWhenTheMachineHiveRefuses) {
    registry.Block(machine);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_FALSE(registry.HasKey(machine, keyPath));
    EXPECT_TRUE(registry.HasKey(user, keyPath));
    EXPECT_TRUE(registry.IsEmpty(user, keyPath));
}

TEST_F(StoredDebugLevel, IsZeroWhenBothHivesRefuse) {
    registry.Block(machine);
    registry.Block(user);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_FALSE(RegistryKey(keyPath).IsOpen());
    EXPECT_FALSE(registry.HasKey(machine, keyPath));
    EXPECT_FALSE(registry.HasKey(user, keyPath));
}

TEST_F(StoredDebugLevel, ACreatedKeyIsFoundTheNextTime) {
    EXPECT_EQ(ReadDebugLevel(), 0);
    Store(machine, "6");
    EXPECT_EQ(ReadDebugLevel(), 6);
}

TEST_F(StoredDebugLevel, ATextWithItsNulAndOneWithoutAreTheSame) {
    Store(machine, std::string("12\0", 3));
    EXPECT_EQ(ReadDebugLevel(), 12);
    Store(machine, "12");
    EXPECT_EQ(ReadDebugLevel(), 12);
}

TEST_F(StoredDebugLevel, TextThatIsNotANumberIsZero) {
    for (const char* text : {"", "abc", "0"}) {
        Store(machine, text);
        EXPECT_EQ(ReadDebugLevel(), 0) << text;
    }
    Store(machine, "1abc");
    EXPECT_EQ(ReadDebugLevel(), 1);
}

TEST_F(StoredDebugLevel, ANumberOf32BitsIsReadAsTheTextOfItsBytes) {
    registry.StoreNumber(machine, keyPath, "DebugLevel", 1);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_EQ(RegistryKey(keyPath).ReadString("DebugLevel"), "\x01");
    registry.StoreNumber(machine, keyPath, "DebugLevel", 0x373635);  // "567"
    EXPECT_EQ(ReadDebugLevel(), 567);
    registry.StoreNumber(machine, keyPath, "DebugLevel", 0x35363738);  // "8765", and no NUL
    EXPECT_EQ(ReadDebugLevel(), 8765);
}

TEST_F(StoredDebugLevel, BytesAreReadAsText) {
    registry.StoreBytes(machine, keyPath, "DebugLevel", "42");
    EXPECT_EQ(ReadDebugLevel(), 42);
}

TEST_F(StoredDebugLevel, AValueOf10240BytesIsReadAndALongerOneIsNot) {
    Store(machine, std::string(10239, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 7);
    Store(machine, std::string(10240, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 0);
    registry.StoreBytes(machine, keyPath, "DebugLevel", std::string(10239, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 7);
    registry.StoreBytes(machine, keyPath, "DebugLevel", std::string(10240, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 0);
}

}  // namespace
