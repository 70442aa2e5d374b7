// The version information in the library's file.

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "tests/plugin/plugin.h"

namespace {

// Returns the version as "MAJOR.MINOR.PATCH".
std::string VersionOf(const VS_FIXEDFILEINFO& fixed, DWORD high, DWORD low) {
    EXPECT_EQ(fixed.dwSignature, 0xFEEF04BDu);
    return std::to_string(HIWORD(high)) + '.' + std::to_string(LOWORD(high)) + '.' + std::to_string(HIWORD(low));
}

class Version : public testing::Test {
  protected:
    Version() {
        const std::wstring file = plugin_test::LibraryFile().wstring();
        DWORD unused = 0;
        const DWORD size = GetFileVersionInfoSizeW(file.c_str(), &unused);
        information.resize(size);
        if (size > 0) {
            GetFileVersionInfoW(file.c_str(), 0, size, information.data());
        }
    }

    std::string Text(const std::string& name) {
        void* value = nullptr;
        UINT size = 0;
        const std::string path = "\\StringFileInfo\\040904B0\\" + name;
        return VerQueryValueA(information.data(), path.c_str(), &value, &size) != FALSE && size > 0
                   ? static_cast<const char*>(value)
                   : "no text";
    }

    std::vector<unsigned char> information;
};

TEST_F(Version, MatchesTheProjectInNumbersAndText) {
    ASSERT_FALSE(information.empty());
    void* value = nullptr;
    UINT size = 0;
    ASSERT_NE(VerQueryValueA(information.data(), "\\", &value, &size), FALSE);
    ASSERT_EQ(size, sizeof(VS_FIXEDFILEINFO));
    const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(value);
    EXPECT_EQ(VersionOf(fixed, fixed.dwFileVersionMS, fixed.dwFileVersionLS), VEXLANE_VERSION);
    EXPECT_EQ(VersionOf(fixed, fixed.dwProductVersionMS, fixed.dwProductVersionLS), VEXLANE_VERSION);
    EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_DLL));
    EXPECT_EQ(Text("FileVersion"), VEXLANE_VERSION);
    EXPECT_EQ(Text("ProductVersion"), VEXLANE_VERSION);
}

TEST_F(Version, HasTheProductsName) {
    ASSERT_FALSE(information.empty());
    EXPECT_EQ(Text("ProductName"), "Vexlane");
    EXPECT_EQ(Text("OriginalFilename"), "vexlane.dll");
    EXPECT_EQ(Text("InternalName"), "vexlane");
    EXPECT_EQ(Text("FileDescription"), "Vexlane licence-plate recognition detector");
}

}  // namespace
