#include <cstring>

#include <pybind11/stl.h>

#include "Bindings.h"
#include "CodePageChoice.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

const char* KindName(CodePage::qovaCodePageEnum kind) {
    switch (kind) {
        case CodePage::qovaCodePageOEM: return "OEM";
        case CodePage::qovaCodePageANSI: return "ANSI";
        case CodePage::qovaCodePageISO: return "ISO";
        case CodePage::qovaCodePageUTF8: return "UTF-8";
        default: return "default";
    }
}

py::bytes Encode(const std::wstring& text, const CodePageName& name) {
    CodePage page(CodePageIdOf(name));
    // Six bytes a character hold every code page's longest sequence,
    // the mode braces of 7-bit Arabic included.
    std::string bytes(6 * text.size() + 2, '\0');
    {
        py::gil_scoped_release release;
        page.Native2Source(text.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    return py::bytes(bytes.c_str(), std::strlen(bytes.c_str()));
}

std::wstring Decode(const std::string& bytes, const CodePageName& name) {
    CodePage page(CodePageIdOf(name));
    // A byte the code page rejects leaves its place as it was: a
    // replacement character.
    std::wstring text(bytes.size() + 1, L'\xFFFD');
    {
        py::gil_scoped_release release;
        page.Source2Native(bytes.c_str(), text.data(), static_cast<uint32_t>(text.size()));
    }
    text.resize(std::wcslen(text.c_str()));
    return text;
}

py::dict Info(const CodePageName& name) {
    CodePage page(CodePageIdOf(name));
    CodePageFacts facts = FactsOf(page);
    py::dict out;
    out["code_page"] = facts.id;
    out["code_page_kind"] = facts.kind;
    out["code_page_name"] = facts.name;
    out["ldid"] = page.GetDBaseLDId();
    return out;
}

}  // namespace

uint32_t CodePageIdOf(const CodePageName& name) {
    uint32_t id = std::holds_alternative<uint32_t>(name)
                      ? std::get<uint32_t>(name)
                      : CodePage::FindCodePageId(String::FromUtf8(std::get<std::string>(name)));
    CodePage probe;
    if (id == 0 || !probe.SetCodePage(id)) {
        throw py::value_error("unknown code page: " +
                              (std::holds_alternative<uint32_t>(name)
                                   ? std::to_string(std::get<uint32_t>(name))
                                   : std::get<std::string>(name)));
    }
    return id;
}

CodePageFacts FactsOf(const CodePage& page) {
    return {page.GetCodePageId(), KindName(page.GetCodePageType()),
            page.GetCodePageName().ToUtf8()};
}

void BindCodePages(py::module_& module) {
    module.def("encode", &Encode, py::arg("text"), py::arg("code_page"),
               "Text as the bytes of a code page (a number or a .cpg name). Characters it "
               "cannot represent become its substitute byte; the text ends at a NUL.");
    module.def("decode", &Decode, py::arg("data"), py::arg("code_page"),
               "The bytes of a code page as text; bytes it rejects become U+FFFD. The bytes "
               "end at the first NUL.");
    module.def("code_page_info", &Info, py::arg("code_page"),
               "The number, kind, .cpg name and language driver byte of a code page.");
}

}  // namespace quillet::python
