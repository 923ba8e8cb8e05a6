#pragma once

// Helpers of the code page tests: locales and table folders switched through
// the environment for the length of a scope.

#include <filesystem>
#include <string>
#include <vector>

#include "codepage/CodePage.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet::test {

// A locale: language id, country id, ANSI and OEM code pages.
class ScopedLocale {
public:
    ScopedLocale(int language, int country, int ansi, int oem)
        : language_("QUILLET_LANGID", std::to_string(language).c_str()),
          country_("QUILLET_COUNTRYID", std::to_string(country).c_str()),
          ansi_("QUILLET_ACP", std::to_string(ansi).c_str()),
          oem_("QUILLET_OEMCP", std::to_string(oem).c_str()) {}

private:
    ScopedEnv language_, country_, ansi_, oem_;
};

inline ScopedLocale English() { return {9, 1, 1252, 437}; }

// An install folder of our own: QUILLET_HOME points at a temporary folder
// whose locale/codepage holds only the files a test writes.
class ScopedTableHome {
public:
    ScopedTableHome() : home_("QUILLET_HOME", dir_.path().c_str()) {
        std::filesystem::create_directories(Folder());
    }
    std::filesystem::path Folder() const { return dir_.path() / "locale" / "codepage"; }
    void Write(const std::string& name, const std::string& text) const {
        WriteBytes(Folder() / name, std::vector<unsigned char>(text.begin(), text.end()));
    }
    // Copies a shipped table file into the folder.
    void CopyShipped(const std::string& name) const;

private:
    TempDir dir_;
    ScopedEnv home_;
};

// The repository's folder of shipped table files.
std::filesystem::path ShippedTables();

// Text through a page with room to spare, up to the first zero written.
std::wstring Decode(CodePage& page, const std::string& bytes);
std::string Encode(CodePage& page, const std::wstring& text);

}  // namespace quillet::test
