#include "foundation/Locale.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "support/ScopedEnv.h"

namespace quillet {
namespace {

using test::ScopedEnv;

// Read at every call, so that tests can switch locales in between.
TEST(LocaleTest, TheEnvironmentSetsTheLocaleElseEnglishWithWesternCodePages) {
    ScopedEnv noLang("QUILLET_LANGID", nullptr);
    ScopedEnv noCountry("QUILLET_COUNTRYID", nullptr);
    ScopedEnv noAcp("QUILLET_ACP", nullptr);
    ScopedEnv noOem("QUILLET_OEMCP", nullptr);
    {
        ScopedEnv lang("QUILLET_LANGID", "17");
        ScopedEnv acp("QUILLET_ACP", "932");
        EXPECT_EQ(QovaLocale::GetLangID(), 17);
        EXPECT_EQ(GetACP(), 932u);
    }
    EXPECT_EQ(QovaLocale::GetCountryID(), 1);
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(GetOEMCP(), 437u);
    ScopedEnv junk("QUILLET_LANGID", "ten");
    EXPECT_EQ(QovaLocale::GetLangID(), 9);
}

TEST(LocaleTest, LocaleInfoAsDecimalText) {
    ScopedEnv oem("QUILLET_OEMCP", "850");
    ScopedEnv country("QUILLET_COUNTRYID", "49");
    wchar_t buffer[8];
    EXPECT_EQ(GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_IDEFAULTCODEPAGE, buffer, 8), 4);
    EXPECT_STREQ(buffer, L"850");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTANSICODEPAGE, buffer, 8), 5);
    EXPECT_STREQ(buffer, L"1252");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, buffer, 8), 3);
    EXPECT_STREQ(buffer, L"49");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTCODEPAGE, nullptr, 0), 4);
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTCODEPAGE, buffer, 3), 0);
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, 0x9999, buffer, 8), 0);
}

TEST(LocaleTest, DecimalPointOfTheCLocale) {
    EXPECT_EQ(LocaleDecimalPoint(), '.');
    const char* before = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = before ? before : "C";
    for (const char* name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8"}) {
        if (std::setlocale(LC_NUMERIC, name)) {
            EXPECT_EQ(LocaleDecimalPoint(), ',');
            std::setlocale(LC_NUMERIC, saved.c_str());
            return;
        }
    }
    GTEST_SKIP() << "no locale with a decimal comma is installed";
}

}  // namespace
}  // namespace quillet
