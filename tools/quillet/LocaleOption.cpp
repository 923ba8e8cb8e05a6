#include "LocaleOption.h"

#include <cstdio>

#include "Common.h"
#include "SystemLocale.h"

namespace quillet::tool {

namespace {

std::string KnownNames() {
    std::string names;
    for (const auto& locale : KnownLocales()) names += (names.empty() ? "" : ", ") + locale.name;
    return names;
}

std::string CheckChoice(const std::string& text) {
    if (text == "auto" || FindLocale(text)) return "";
    return "unknown locale '" + text + "'; known: auto, " + KnownNames();
}

void ApplyAuto(const std::optional<TextCodePage>& page) {
    if (!page) return;
    SystemLocale current = CurrentLocale();
    auto locale = LocaleReading(page->id, page->kind);
    if (!locale) {
        std::fprintf(stderr,
                     "quillet: note: --locale auto: no known locale reads code page %u as itself\n",
                     page->id);
        return;
    }
    if (locale->name == current.name) return;
    ApplyLocale(*locale);
    std::fprintf(stderr,
                 "quillet: note: --locale auto: code page %u is read with the system code pages "
                 "of %s (ANSI %u, OEM %u)\n",
                 page->id, locale->name.c_str(), locale->ansi, locale->oem);
}

}  // namespace

void AddLocaleOption(CLI::App& command, std::function<std::optional<TextCodePage>()> codePage) {
    auto choice = std::make_shared<std::string>();
    command
        .add_option("--locale", *choice,
                    "System code pages to read table text with: those of LANG (e.g. ja_JP), or "
                    "auto: of a locale that reads the table's own code page")
        ->type_name("auto|LANG")
        ->check(CLI::Validator(CheckChoice, ""));
    // Runs once the command's arguments are parsed, before the command: the
    // table's path is known then, and nothing has read it yet.
    command.parse_complete_callback([choice, codePage] {
        if (choice->empty()) return;
        if (*choice == "auto") return ApplyAuto(codePage());
        ApplyLocale(*FindLocale(*choice));
    });
}

std::function<std::optional<TextCodePage>()> TableCodePageOf(const std::string& table) {
    return [&table]() -> std::optional<TextCodePage> {
        try {
            CodePage page;
            ChooseTableCodePage(table, page);
            return TextCodePage{page.GetCodePageId(), page.GetCodePageType()};
        } catch (const std::exception&) {
            return std::nullopt;  // the command itself says what is wrong with the file
        }
    };
}

std::function<std::optional<TextCodePage>()> NamedCodePageOf(const std::string& text) {
    return [&text]() -> std::optional<TextCodePage> {
        uint32_t id = text.empty() ? 0 : CodePage::FindCodePageId(String::FromUtf8(text));
        if (id == 0) return std::nullopt;
        return TextCodePage{id, CodePage::FindCodePageType(id)};
    };
}

Json TextReadingJson(const CodePage& page) {
    SystemLocale current = CurrentLocale();
    uint32_t id = page.GetCodePageId();
    int kind = page.GetCodePageType();
    TextReading reading = ReadingUnder(id, kind, current);
    auto fix = reading.right ? std::nullopt : LocaleReading(id, kind);
    return {{"locale", current.name},
            {"read_through", reading.throughWhat},
            {"reads_right", reading.right},
            {"locale_fix", fix ? Json("--locale " + fix->name) : Json(nullptr)}};
}

}  // namespace quillet::tool
