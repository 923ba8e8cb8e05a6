#include "foundation/Settings.h"

#include <gtest/gtest.h>

#include <fstream>

#include "foundation/Win32Error.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::ScopedEnv;

class SettingsTest : public ::testing::Test {
protected:
    void WriteStore(const std::string& text) {
        std::ofstream((dir_ / "settings").string()) << text;
    }

    test::TempDir dir_;
    ScopedEnv config_{"QUILLET_CONFIG", (dir_ / "settings").c_str()};
};

TEST_F(SettingsTest, StorePathFollowsTheEnvironment) {
    EXPECT_EQ(CRegKey::StorePath(), (dir_ / "settings").string());
    ScopedEnv noConfig("QUILLET_CONFIG", nullptr);
    ScopedEnv xdg("XDG_CONFIG_HOME", "/x");
    EXPECT_EQ(CRegKey::StorePath(), "/x/quillet/settings");
    ScopedEnv noXdg("XDG_CONFIG_HOME", nullptr);
    ScopedEnv home("HOME", "/home/q");
    EXPECT_EQ(CRegKey::StorePath(), "/home/q/.config/quillet/settings");
}

// A byte order mark and Windows line ends are ignored.
TEST_F(SettingsTest, ReadsValuesOfAKey) {
    WriteStore(
        "\xEF\xBB\xBFSOFTWARE\\QOVA\\Common\\CodePage\\dbfDefault =  UTF-8  \r\n"
        "# defaults\n"
        "; also a comment\n"
        "  SOFTWARE\\QOVA\\Common\\CodePage\\other=caf\xC3\xA9\n"
        "not a setting\n"
        "SOFTWARE\\QOVA\\Elsewhere\\dbfDefault = 1252\n");
    CRegKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\QOVA\\Common\\CodePage", KEY_READ),
              static_cast<int32_t>(ERROR_SUCCESS));
    wchar_t value[16];
    uint32_t chars = 16;
    ASSERT_EQ(key.QueryStringValue(L"dbfDefault", value, &chars), 0);
    EXPECT_STREQ(value, L"UTF-8");
    EXPECT_EQ(chars, 6u);
    chars = 16;
    ASSERT_EQ(key.QueryStringValue(L"OTHER", value, &chars), 0);  // names ignore case
    EXPECT_STREQ(value, L"caf\u00E9");
    chars = 16;
    EXPECT_EQ(key.QueryStringValue(L"missing", value, &chars),
              static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
    uint32_t bytes = sizeof(value);
    ASSERT_EQ(key.QueryValue(value, L"dbfDefault", &bytes), 0);
    EXPECT_EQ(bytes, 6 * sizeof(wchar_t));
    EXPECT_EQ(key.Close(), 0);
    EXPECT_EQ(key.QueryStringValue(L"dbfDefault", value, &chars),
              static_cast<int32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(SettingsTest, TooSmallABufferGetsTheSizeNeededAndNothingWritten) {
    WriteStore("A\\B\\name = 12345\n");
    CRegKey key;
    ASSERT_EQ(key.Open(HKEY_CURRENT_USER, L"a\\b"), 0);
    wchar_t value[4] = {L'#', L'#', L'#', L'#'};
    uint32_t chars = 4;
    EXPECT_EQ(key.QueryStringValue(L"name", value, &chars),
              static_cast<int32_t>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(chars, 6u);
    EXPECT_EQ(value[0], L'#');
}

TEST_F(SettingsTest, MissingKeysAndStores) {
    WriteStore("A\\B\\C\\name = 1\n");
    CRegKey key;
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\B"), 0) << "a key with subkeys exists";
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\X"), static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
    ScopedEnv noStore("QUILLET_CONFIG", (dir_ / "absent").c_str());
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\B\\C"), static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
}  // namespace quillet
