#pragma once

// `--locale auto|LANG`, on every command that reads or writes table text.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "Registry.h"
#include "codepage/CodePage.h"

namespace quillet::tool {

struct TextCodePage {
    uint32_t id;
    int kind;  // CodePage::qovaCodePageEnum
};

// Adds the option to `command`. Before the command runs, the process gets
// the system code pages of the locale LANG names; with `auto`, those of a
// locale in which the library reads the code page `codePage()` gives as that
// code page (said once on stderr; nothing changes when the current locale
// already does, or when `codePage()` gives nothing).
void AddLocaleOption(CLI::App& command, std::function<std::optional<TextCodePage>()> codePage);

// The code page of the table at `table` (a path the command parses into
// the string), as the library chooses it; nothing when it is no table.
std::function<std::optional<TextCodePage>()> TableCodePageOf(const std::string& table);
// The code page `text` names (a command's CP argument or option); nothing
// when it is empty or names none.
std::function<std::optional<TextCodePage>()> NamedCodePageOf(const std::string& text);

// Whether text in `page` reads as that code page on the current locale, and
// the `--locale` that reads it right when it does not: keys "locale",
// "read_through", "reads_right", "locale_fix".
Json TextReadingJson(const CodePage& page);

}  // namespace quillet::tool
