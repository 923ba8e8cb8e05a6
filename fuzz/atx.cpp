// Opens a column attribute index (.atx) made of the fuzz bytes, runs every
// predicate on it, checks it, and (bit 3 of the first byte) adds and deletes
// one entry. Input: one byte (bits 0-2: the column type), then the file. The
// files go to a folder of their own under $TMPDIR, removed after each input.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "FuzzFiles.h"
#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"
#include "foundation/DebugOutput.h"

namespace {

using namespace quillet;

Field ColumnOf(uint8_t selector) {
    switch (selector & 7) {
        case 0: return Field(L"f", qovaFieldTypeInteger, 4);
        case 1: return Field(L"f", qovaFieldTypeSmallInteger, 2);
        case 2: return Field(L"f", qovaFieldTypeSingle, 4);
        case 3: return Field(L"f", qovaFieldTypeDouble, 8);
        case 4: return Field(L"f", qovaFieldTypeDate, 8);
        case 5: return Field(L"f", qovaFieldTypeString, 8);
        case 6: return Field(L"f", qovaFieldTypeString, 1);
        default: return Field(L"f", qovaFieldTypeString, 254);
    }
}

void SearchEverything(MTreeIndex& index, bool text) {
    for (int p = 1; p <= 1024; p <<= 1) {
        std::vector<Variant> values;
        if (text) {
            values = {Variant::Bstr(L"b_%"), Variant::Bstr(L"a"), Variant::Bstr(L"zz")};
        } else {
            values = {Variant::I4(7), Variant::R8(-1.5), Variant::I4(1000)};
        }
        std::vector<VARIANT*> pointers = {&values[0], &values[1], &values[2]};
        FIDSet result;
        index.Search(pointers, static_cast<qovaSQLPredicates>(p), &result);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (SetDebugOutputSink([](const wchar_t*) {}), true);
    (void)quiet;
    if (size < 1) return 0;
    std::string folder = (std::filesystem::temp_directory_path() / "quillet-atx-XXXXXX").string();
    if (!mkdtemp(folder.data())) abort();
    std::filesystem::path path = std::filesystem::path(folder) / "f.atx";
    fuzz::WriteFile(path, data + 1, size - 1);
    Field field = ColumnOf(data[0]);
    bool text = (data[0] & 7) >= 5;
    {
        MTreeIndex index;
        if (index.Open(fuzz::Wide(path).c_str(), &field, MTreeIndex::kModeUpdate) == S_OK) {
            SearchEverything(index, text);
            if (data[0] & 8) {
                Variant value = text ? Variant::Bstr(L"m") : Variant::I4(3);
                index.InsertEntry(value, 5);
                index.DeleteEntry(value, 5);
            }
            index.Close();
            LegacyIndex check(path.string());
            int64_t entries = 0;
            if (check.Open(LegacyIndex::LayoutOf(index.GetKeyDescriptor()), false)) {
                check.Check(entries);
            }
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return 0;
}
