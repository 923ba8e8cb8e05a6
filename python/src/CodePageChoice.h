#pragma once

// A code page as Python callers name it: a number (437, 1252, 65001, ...) or
// the text a .cpg file holds ("UTF-8", "ANSI 1252", "SJIS", ...). Both reach
// the library's CodePage; what it does not know is a ValueError here.

#include <cstdint>
#include <string>
#include <variant>

#include "codepage/CodePage.h"

namespace quillet::python {

using CodePageName = std::variant<uint32_t, std::string>;

uint32_t CodePageIdOf(const CodePageName& name);

// The facts of a code page: the keys `code_page`, `code_page_kind`,
// `code_page_name` the tool's JSON uses.
struct CodePageFacts {
    uint32_t id;
    std::string kind;
    std::string name;
};
CodePageFacts FactsOf(const CodePage& page);

}  // namespace quillet::python
