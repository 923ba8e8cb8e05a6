// The demo's B-tree step: an index of town names in each node format, filled
// by a bulk load and by single inserts, then searched, scanned and checked.

#include <iostream>
#include <memory>

#include "Common.h"
#include "attrindex/MTIndexNG.h"
#include "attrindex/MTSearch.h"
#include "foundation/Guid.h"
#include "foundation/IFIDSet.h"

namespace quillet::tool {

namespace {

const wchar_t* const kTowns[] = {L"Zug",  L"Aarau", L"Biel",  L"Chur",
                                 L"Sion", L"Thun",  L"Baden", L"Olten"};

void Check(HRESULT hr, const char* what) {
    if (hr != S_OK) throw Failure(std::string("the demo index: ") + what + " failed");
}

void Show(MTIndex& index, const char* format) {
    std::cout << format << ": " << index.GetLevels() << " level(s), " << index.Size()
              << " bytes; in order:";
    MTSearch search;
    MTKey key;
    int32_t id = 0;
    Check(index.SearchFirst(search), "SearchFirst");
    while (search.Next(key, id) == S_OK) std::cout << " " << Utf8(key.GetString()) << "=" << id;
    std::cout << "\n";
}

void RunFormat(const std::filesystem::path& folder, bool ng) {
    const char* format = ng ? "next-generation" : "older";
    auto index = ng ? std::make_unique<MTIndexNG>(MTString, 8, 1252)
                    : std::make_unique<MTIndex>(MTString, 8, 1252);
    Check(index->Open(WidePath(folder / (ng ? "towns.idx" : "towns.atx")).c_str(),
                      GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                      FILE_ATTRIBUTE_NORMAL, nullptr),
          "Open");
    Check(index->StartBulkLoad(4), "StartBulkLoad");
    for (int32_t id = 0; id < 4; ++id)
        Check(index->BulkInsert(MTKey(kTowns[id]), id + 1), "BulkInsert");
    Check(index->FinishBulkLoad(false), "FinishBulkLoad");
    for (int32_t id = 4; id < 8; ++id) Check(index->Insert(MTKey(kTowns[id]), id + 1), "Insert");
    Check(index->Delete(MTKey(L"Zug"), 1), "Delete");
    Show(*index, format);

    std::unique_ptr<IFIDSet> ids;
    Check(CoCreateFIDSet(CLSID_FIDSet, &ids), "CoCreateFIDSet");
    MTSearch search;
    Check(index->Search(MTKey(L"B"), true, search), "Search");
    Check(search.ReadTo(MTKey(L"Sion"), false, ids.get()), "ReadTo");
    int32_t count = 0;
    ids->get_Count(&count);
    std::cout << "  names from B up to Sion (not included): " << count
              << " records; \"Thun\" is record "
              << (index->SearchKeyValue(MTKey(L"Thun"), 6) == S_OK ? "6" : "not 6")
              << "; the tree is " << (index->Validate() == S_OK ? "consistent" : "inconsistent")
              << "\n";
    Check(index->Close(), "Close");
}

void RunDemo(const std::filesystem::path& folder) {
    RunFormat(folder, false);
    RunFormat(folder, true);
}

}  // namespace

QUILLET_TOOL_REGISTER([] {
    RegisterDemoStep({800, "B-tree attribute indexes: bulk load, insert, delete, search", RunDemo});
});

}  // namespace quillet::tool
