// The framework classes' step of `quillet demo`: byte swapping, an external
// sort that spills runs to disk, OLE dates, variant conversions, SQL LIKE and
// the exported form of a bit set.

#include <cstdio>
#include <cstring>
#include <iostream>
#include <random>
#include <string>

#include "Common.h"
#include "foundation/BitSet.h"
#include "foundation/ByteOrder.h"
#include "foundation/ExternalSort.h"
#include "foundation/SqlParse.h"
#include "foundation/Variant.h"

namespace quillet::tool {

namespace {

std::string Hex(const unsigned char* bytes, size_t n) {
    std::string text;
    char digits[4];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(digits, sizeof digits, i ? " %02x" : "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

void ShowByteSwapping() {
    int32_t code = 9994;
    SwapInt(&code, 1);
    std::cout << "The record file code 9994 stored big-endian: "
              << Hex(reinterpret_cast<const unsigned char*>(&code), 4) << "\n";
}

// Elements as the spatial index builder sorts them: bin, then feature number.
struct BinFeature {
    int32_t bin;
    int32_t feature;
    int32_t box;
};

int CompareBinFeature(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    BinFeature x, y;
    std::memcpy(&x, a->data, sizeof x);
    std::memcpy(&y, b->data, sizeof y);
    if (x.bin != y.bin) return x.bin < y.bin ? -1 : 1;
    return x.feature < y.feature ? -1 : (x.feature > y.feature ? 1 : 0);
}

void ShowExternalSort() {
    constexpr int kCount = 5000;
    constexpr int32_t kBudget = 16 << 10;
    ExternalSort sort;
    if (!sort.Init(CompareBinFeature, kBudget, 1024)) throw Failure("external sort: cannot start");
    std::mt19937 random(1);
    for (int feature = 1; feature <= kCount; ++feature) {
        BinFeature e{static_cast<int32_t>(random() % 63) + 1, feature, 0};
        if (!sort.Add(sizeof e, &e)) throw Failure("external sort: cannot spill a run");
    }
    if (!sort.Sort()) throw Failure("external sort: merge failed");
    int32_t size;
    const unsigned char* data;
    BinFeature previous{0, 0, 0}, e{};
    int64_t inOrder = 0;
    std::string firstFew;
    while (sort.Next(&size, &data) == 0) {
        std::memcpy(&e, data, sizeof e);
        if (std::make_pair(previous.bin, previous.feature) < std::make_pair(e.bin, e.feature)) {
            ++inOrder;
        }
        if (inOrder <= 3)
            firstFew += " (" + std::to_string(e.bin) + ", " + std::to_string(e.feature) + ")";
        previous = e;
    }
    std::cout << "Sorted " << sort.GetCount() << " (bin, feature) records in a " << kBudget / 1024
              << " KiB budget: " << sort.GetRunCount()
              << " runs spilled to an unlinked temporary file and merged; " << inOrder
              << " came back in order, first" << firstFew << "\n";
}

std::string DateText(DATE date) {
    SYSTEMTIME t;
    if (!VariantTimeToSystemTime(date, &t)) return "invalid";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay,
                  t.wHour, t.wMinute, t.wSecond);
    return text;
}

void ShowDatesAndVariants() {
    std::cout << "OLE dates count days from 1899-12-30:";
    for (DATE date : {0.0, 1.5, -1.25, 45351.5})
        std::cout << "  " << date << " = " << DateText(date);
    std::cout << "\n";

    Variant text = Variant::Bstr(L"2.5");
    Variant number;
    VariantChangeType(&number, &text, 0, VT_I4);
    Variant date = Variant::Date(45351.5);
    Variant dateText;
    VariantChangeType(&dateText, &date, 0, VT_BSTR);
    std::cout << "Variants: the text \"2.5\" as VT_I4 is " << number.lVal
              << " (ties to even); the date 45351.5 as text is \"" << Utf8(dateText.bstrVal)
              << "\"\n";
}

void ShowLike() {
    std::cout << "LIKE 'ab_c%' matches:";
    for (const wchar_t* key : {L"abXc", L"abXcde", L"abc", L"aXbc"}) {
        std::cout << " " << Utf8(key) << "="
                  << (SqlParse::PatternMatch(key, L"ab_c%") ? "yes" : "no");
    }
    std::cout << "\n";
}

void ShowBitSet() {
    BitSet chunks(5);
    chunks.Set(0);
    chunks.Set(4);
    std::vector<uint32_t> words;
    BitSet::ExportHeader header = chunks.Export(&words);
    unsigned char block[BitSet::ExportHeader::kEncodedSize];
    header.EncodeTo(block);
    std::cout << "A bit set with bits 0 and 4 of 5 exports the block " << Hex(block, sizeof block)
              << " and the word " << Hex(reinterpret_cast<const unsigned char*>(words.data()), 4)
              << "\n";
}

void RunDemo(const std::filesystem::path&) {
    ShowByteSwapping();
    ShowExternalSort();
    ShowDatesAndVariants();
    ShowLike();
    ShowBitSet();
}

}  // namespace

QUILLET_TOOL_REGISTER([] { RegisterDemoStep({910, "Framework classes", RunDemo}); });

}  // namespace quillet::tool
