// Reading the LDID tables and the 8-bit conversion tables of a code page from
// the table files. A file that cannot be opened is no error: the LDID tables
// then take their built-in rows, and the conversion tables stay as they were.
// A line that does not parse ends the reading; what was read before it stays.

#include <algorithm>
#include <cinttypes>
#include <new>

#include "codepage/CodePage.h"
#include "codepage/LdidRows.h"
#include "codepage/ReverseByteIndex.h"
#include "codepage/TableFile.h"
#include "foundation/Locale.h"

namespace quillet {

int32_t CodePage::LoadDBase2CPG() {
    ldidTable_.reset(new (std::nothrow) LdidTable);
    if (!ldidTable_) return 0;
    if (auto file = OpenTableFile(TableFilePath(kLdidFileName))) {
        unsigned short ldid = 0;
        uint32_t codePage = 0;
        while (!std::feof(file.get()) &&
               std::fscanf(file.get(), "%hu %" SCNu32, &ldid, &codePage) == 2) {
            ldidTable_->SetAt(static_cast<unsigned char>(ldid), codePage);
        }
    } else {
        for (const auto& row : kBuiltinLdidRows) ldidTable_->SetAt(row.ldid, row.codePage);
    }
    return ldidTable_->GetCount();
}

int32_t CodePage::LoadCPG2DBase() {
    reverseLdidTable_.reset(new (std::nothrow) ReverseLdidTable);
    if (!reverseLdidTable_) return 0;
    if (auto file = OpenTableFile(TableFilePath(kLocaleKeyFileName))) {
        uint32_t key = 0;
        unsigned short ldid = 0;
        while (!std::feof(file.get()) &&
               std::fscanf(file.get(), "%" SCNu32 " %hu", &key, &ldid) == 2) {
            reverseLdidTable_->SetAt(key, static_cast<unsigned char>(ldid));
        }
    } else {
        for (const auto& row : kBuiltinLocaleKeyRows) reverseLdidTable_->SetAt(row.key, row.ldid);
    }
    return reverseLdidTable_->GetCount();
}

void CodePage::LoadMatchTables() {
    // The system conversions serve these; Far East locales convert through
    // their multi-byte paths.
    if (IsFarEast()) return;
    if (codePageType_ == qovaCodePageDefault || codePageType_ == qovaCodePageUTF8) return;
    if (codePageId_ == 88591 || codePageId_ > 885920) return;
    if (codePageType_ == qovaCodePageANSI && codePageId_ == GetACP()) return;
    if (codePageType_ == qovaCodePageOEM && codePageId_ == GetOEMCP()) return;

    if (codePageId_ == 448) {
        init_arab7(TableFilePath(kAlarabiIndexFileName).c_str());
    } else if (codePageId_ == 449) {
        init_arab7(TableFilePath(kAsmo449IndexFileName).c_str());
    } else {
        LoadByteTable(TableFilePath(std::to_wstring(codePageId_) + L".txt").c_str());
    }
}

void CodePage::LoadByteTable(const wchar_t* path) {
    auto file = OpenTableFile(path);
    if (!file) return;
    uint16_t entries[128];
    for (unsigned i = 0; i < 128; ++i) entries[i] = static_cast<uint16_t>(0x80 + i);
    unsigned short byte = 0;
    uint32_t unicode = 0;
    while (!std::feof(file.get()) &&
           std::fscanf(file.get(), "%hx %" SCNx32, &byte, &unicode) == 2) {
        if (byte >= 0x80 && byte <= 0xFF) entries[byte - 0x80] = static_cast<uint16_t>(unicode);
    }

    if (!forwardTable_) forwardTable_.reset(new (std::nothrow) uint16_t[128]);
    if (forwardTable_) std::copy(entries, entries + 128, forwardTable_.get());
    // Earlier code pages' entries stay; where two bytes share a value the
    // higher byte wins.
    if (!reverseMap_) reverseMap_.reset(new (std::nothrow) ReverseByteMap);
    if (!reverseMap_) return;
    for (unsigned b = 0x80; b <= 0xFF; ++b) {
        reverseMap_->SetAt(entries[b - 0x80], static_cast<unsigned char>(b));
    }
    reverseIndex_.reset(new (std::nothrow) ReverseByteIndex);
    if (!reverseIndex_) return;
    reverseMap_->ForEach([this](uint16_t unicode, unsigned char byte) { reverseIndex_->Set(unicode, byte); });
}

}  // namespace quillet
