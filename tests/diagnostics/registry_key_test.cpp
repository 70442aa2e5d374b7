#include "diagnostics/registry_key.h"

#include <gmock/gmock.h>

#include "diagnostics/debug_level.h"
#include "tests/diagnostics/fake_registry.h"

namespace {

using diagnostics::ReadDebugLevel;
using diagnostics::RegistryKey;
using platform::RegistryHive;
using testing::ElementsAre;

constexpr char keyPath[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr std::uint32_t accessDenied = 5;

class RegistryAccess : public testing::Test {
  protected:
    RegistryAccess() { fake_registry::Reset(); }
};

TEST_F(RegistryAccess, AKeyOfTheMachineHiveIsOpenedInThe32BitViewReadOnceAndClosed) {
    fake_registry::AddKey(RegistryHive::LocalMachine, keyPath);
    fake_registry::SetValue(RegistryHive::LocalMachine, "DebugLevel", "3");
    EXPECT_EQ(ReadDebugLevel(), 3);
    EXPECT_THAT(fake_registry::Journal(), ElementsAre("open machine SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "query machine DebugLevel 10240", "close machine"));
}

TEST_F(RegistryAccess, AKeyOfTheUserHiveIsOpenedWhenTheMachineHiveHasNone) {
    fake_registry::AddKey(RegistryHive::CurrentUser, keyPath);
    fake_registry::SetValue(RegistryHive::CurrentUser, "DebugLevel", "4");
    EXPECT_EQ(ReadDebugLevel(), 4);
    EXPECT_THAT(fake_registry::Journal(), ElementsAre("open machine SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "open user SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "query user DebugLevel 10240", "close user"));
}

TEST_F(RegistryAccess, AKeyThatNeitherHiveHasIsCreatedInTheMachineHiveWithoutTheView) {
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_THAT(fake_registry::Journal(), ElementsAre("open machine SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "open user SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "create machine SOFTWARE\\Tellumark\\KORA\\DEBUG F003F",
                                                      "query machine DebugLevel 10240", "close machine"));
}

TEST_F(RegistryAccess, AKeyThatCannotBeCreatedInTheMachineHiveIsCreatedInTheUserHive) {
    fake_registry::Block(RegistryHive::LocalMachine, accessDenied);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_THAT(fake_registry::Journal(), ElementsAre("open machine SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "open user SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                                                      "create machine SOFTWARE\\Tellumark\\KORA\\DEBUG F003F",
                                                      "create user SOFTWARE\\Tellumark\\KORA\\DEBUG F003F",
                                                      "query user DebugLevel 10240", "close user"));
}

TEST_F(RegistryAccess, WithoutAnyKeyTheQueryIsStillMadeAndNothingIsClosed) {
    fake_registry::Block(RegistryHive::LocalMachine, accessDenied);
    fake_registry::Block(RegistryHive::CurrentUser, accessDenied);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_THAT(fake_registry::Journal(),
                ElementsAre("open machine SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                            "open user SOFTWARE\\Tellumark\\KORA\\DEBUG F023F",
                            "create machine SOFTWARE\\Tellumark\\KORA\\DEBUG F003F",
                            "create user SOFTWARE\\Tellumark\\KORA\\DEBUG F003F", "query none DebugLevel 10240"));
}

TEST_F(RegistryAccess, TheStatusOfTheLastAttemptShowsWhetherTheKeyIsOpen) {
    EXPECT_TRUE(RegistryKey(keyPath).IsOpen());
    fake_registry::Block(RegistryHive::LocalMachine, accessDenied);
    EXPECT_TRUE(RegistryKey(keyPath).IsOpen());
    fake_registry::Block(RegistryHive::CurrentUser, accessDenied);
    EXPECT_FALSE(RegistryKey(keyPath).IsOpen());
}

TEST_F(RegistryAccess, AnyPathAndAnyValueCanBeRead) {
    fake_registry::AddKey(RegistryHive::CurrentUser, "A\\B");
    fake_registry::SetValue(RegistryHive::CurrentUser, "Colour", "blue");
    const RegistryKey key("A\\B");
    EXPECT_EQ(key.ReadString("Colour"), "blue");
    EXPECT_EQ(key.ReadString("Shape"), "");
}

struct LevelText {
    std::string text;
    std::int32_t level;
};

class DebugLevelText : public RegistryAccess, public testing::WithParamInterface<LevelText> {};

TEST_P(DebugLevelText, IsReadAsADecimalNumber) {
    fake_registry::AddKey(RegistryHive::LocalMachine, keyPath);
    fake_registry::SetValue(RegistryHive::LocalMachine, "DebugLevel", GetParam().text);
    EXPECT_EQ(ReadDebugLevel(), GetParam().level);
}

INSTANTIATE_TEST_SUITE_P(
    OfTheRegistry, DebugLevelText,
    testing::Values(LevelText{"3", 3}, LevelText{"-1", -1}, LevelText{"1abc", 1}, LevelText{"", 0}, LevelText{"abc", 0},
                    LevelText{"0", 0}, LevelText{"-5", -5}, LevelText{" 7", 7}, LevelText{"+8", 8},
                    LevelText{"2147483647", 2147483647}, LevelText{"-2147483648", INT32_MIN},
                    // The registry stores a text with its NUL.
                    LevelText{std::string("3\0", 2), 3},
                    // What follows a NUL is not part of the text.
                    LevelText{std::string("1\0"
                                          "23",
                                          4),
                              1},
                    LevelText{std::string("\0"
                                          "9",
                                          2),
                              0},
                    // The bytes of the 32-bit number 1: a text with the one character '\x01', which is not a digit.
                    LevelText{std::string("\x01\0\0\0", 4), 0},
                    // The bytes of a number 0x35: the text "5".
                    LevelText{std::string("5\0\0\0", 4), 5},
                    // Numbers beyond 32 bits are clamped.
                    LevelText{"99999999999", INT32_MAX}, LevelText{"-99999999999", INT32_MIN},
                    LevelText{"4294967296", INT32_MAX}, LevelText{"99999999999999999999999", INT32_MAX}));

class LongValue : public RegistryAccess {
  protected:
    static void Store(const std::string& bytes) {
        fake_registry::AddKey(RegistryHive::LocalMachine, keyPath);
        fake_registry::SetValue(RegistryHive::LocalMachine, "DebugLevel", bytes);
    }
};

TEST_F(LongValue, Of10240BytesWithoutNulIsReadToItsLastByte) {
    Store(std::string(10239, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 7);
    EXPECT_EQ(RegistryKey(keyPath).ReadString("DebugLevel"), std::string(10239, '0') + "7");
}

TEST_F(LongValue, Of10241BytesIsAFailedQuery) {
    Store(std::string(10240, '1') + "7");
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_EQ(RegistryKey(keyPath).ReadString("DebugLevel"), "");
}

TEST_F(LongValue, Of10241BytesIsAFailedQueryEvenWithAnEarlyNul) {
    Store(std::string("3\0", 2) + std::string(10239, ' '));
    EXPECT_EQ(ReadDebugLevel(), 0);
}

TEST(DebugLevel, IsZeroUntilItIsSetAndThenWhatItWasSetTo) {
    EXPECT_EQ(diagnostics::DebugLevel(), 0);
    diagnostics::SetDebugLevel(-5);
    EXPECT_EQ(diagnostics::DebugLevel(), -5);
    diagnostics::SetDebugLevel(0);
    EXPECT_EQ(diagnostics::DebugLevel(), 0);
}

TEST_F(RegistryAccess, ReadingTheLevelDoesNotSetIt) {
    fake_registry::AddKey(RegistryHive::LocalMachine, keyPath);
    fake_registry::SetValue(RegistryHive::LocalMachine, "DebugLevel", "3");
    ASSERT_EQ(ReadDebugLevel(), 3);
    EXPECT_EQ(diagnostics::DebugLevel(), 0);
}

}  // namespace
