#pragma once

// CodePage: the character encoding a dBASE table stores its text in, and the
// conversion of that text to and from wide strings (32-bit code points).
//
// A code page is chosen from a number, from the text of a `.cpg` side file,
// from the language driver id (LDID) byte of a table header, from a kind, or
// from the system default; it is named back for a `.cpg` file and as an LDID.
// Numbers keep their Windows/DOS values (437, 1252, 932, ...); ISO 8859 parts
// are "8859" followed by the part (88591, 885915); 65001 is UTF-8; 448
// ("ALARABI") and 449 ("ASMO 449") are 7-bit Arabic code pages.
//
// Every CodePage always holds a valid number and kind: a failed explicit
// choice in a constructor falls back to the system default. The object owns
// its LDID tables (read lazily from the table files, else built in) and its
// conversion tables (read on each change of code page); nothing is shared
// between objects. Not thread-safe; one object per table.
//
// The converters take (source, destination, size in destination units). None
// reads past the source's terminator or writes past `size`.

#include <cstdint>
#include <memory>

#include "codepage/Hash.h"
#include "foundation/Export.h"
#include "foundation/String.h"

namespace quillet {

class QUILLET_EXPORT CodePage {
public:
    enum qovaCodePageEnum {
        qovaCodePageDefault = 0,  // no explicit kind: the system default code page
        qovaCodePageOEM = 1,      // an OEM (DOS) code page
        qovaCodePageANSI = 2,     // a Windows ANSI code page
        qovaCodePageISO = 3,      // an ISO 8859 code page ("EUC" in Far East locales)
        qovaCodePageUTF8 = 4,
    };

    using LdidTable = Hash<unsigned char, unsigned char, uint32_t, uint32_t>;
    using ReverseLdidTable = Hash<uint32_t, uint32_t, unsigned char, unsigned char>;
    using ReverseByteMap = Hash<uint16_t, uint16_t, unsigned char, unsigned char>;

    // Where a 7-bit Arabic conversion stands: the next source byte, the next
    // destination byte, the end of the room (the terminator's place), and the
    // nesting depth of braces met in Latin mode.
    struct Arab7Cursor {
        const unsigned char* src;
        char* dst;
        const char* end;
        uint32_t depth;
    };

    CodePage();
    explicit CodePage(const String& text);
    explicit CodePage(unsigned char ldid);
    explicit CodePage(qovaCodePageEnum kind);
    explicit CodePage(uint32_t codePage);
    ~CodePage();
    CodePage(CodePage&&) noexcept;
    CodePage& operator=(CodePage&&) noexcept;
    CodePage(const CodePage&) = delete;
    CodePage& operator=(const CodePage&) = delete;

    // Each returns false and changes nothing when the choice is unknown.
    bool SetCodePage(const String& text);
    bool SetCodePage(unsigned char ldid);
    bool SetCodePage(qovaCodePageEnum kind);
    bool SetCodePage(uint32_t codePage);
    // The system default code page and its tables.
    void Initialize();

    uint32_t GetCodePageId() const { return codePageId_; }
    qovaCodePageEnum GetCodePageType() const { return codePageType_; }

    static qovaCodePageEnum FindCodePageType(uint32_t codePage);
    // The code page a `.cpg` text or name stands for, 0 when none.
    static uint32_t FindCodePageId(const String& text);
    // The text written to a `.cpg` file.
    String GetCodePageName() const;
    // The LDID byte of a table header; 0 means none (write a `.cpg` file).
    unsigned char GetDBaseLDId();

    // The system code pages: the configured default of tables, the locale's
    // ANSI and OEM code pages, and the ISO (or EUC) code page of the locale.
    static uint32_t GetDefaultCP();
    static uint32_t GetAnsiCP();
    static uint32_t GetOemCP();
    static uint32_t GetIsoCP();
    // True in Chinese, Japanese and Korean locales.
    static bool IsFarEast();
    // The folder of the code page table files, into `buffer` of `size` units.
    static void GetDefaultPath(wchar_t* buffer, uint32_t size);

    // Fill the LDID table and its reverse from the table files (or the
    // built-in rows); each returns the table's entry count.
    int32_t LoadDBase2CPG();
    int32_t LoadCPG2DBase();

    // Table bytes to wide text and back, by kind.
    bool Source2Native(const char* src, wchar_t* dst, uint32_t size);
    bool Native2Source(const wchar_t* src, char* dst, uint32_t size);
    // The bytes `src` takes in this code page.
    uint32_t GetByteLength(const wchar_t* src);

    bool Ansi2CharBuff(const char* src, wchar_t* dst, uint32_t size);
    bool Oem2CharBuff(const char* src, wchar_t* dst, uint32_t size);
    bool Iso2CharBuff(const char* src, wchar_t* dst, uint32_t size);
    bool Utf82CharBuff(const char* src, wchar_t* dst, uint32_t size);
    bool Char2AnsiBuff(const wchar_t* src, char* dst, uint32_t size);
    bool Char2OemBuff(const wchar_t* src, char* dst, uint32_t size);
    bool Char2IsoBuff(const wchar_t* src, char* dst, uint32_t size);
    bool Char2Utf8Buff(const wchar_t* src, char* dst, uint32_t size);

    // Through the loaded 8-bit tables.
    void Src2Ntv8Bit(const char* src, wchar_t* dst, uint32_t size);
    void Ntv2Src8Bit(const wchar_t* src, char* dst, uint32_t size);

    // EUC-JP to Shift-JIS and back, zero-terminated within `size` bytes.
    static void EUC2SJIS(const char* src, char* dst, uint32_t size);
    static void SJIS2EUC(const char* src, char* dst, uint32_t size);

    // 7-bit Arabic text to Windows code page 1256 bytes and back. "{" and "}"
    // switch between Latin and Arabic mode; the text begins in the mode that
    // Set_Arabic_Major / Set_Latin_Major chose.
    void From_Arab7_To_Wincode(const char* src, char* dst, uint32_t size);
    void From_Wincode_To_Arab7(const char* src, char* dst, uint32_t size);
    // One run in one mode; each returns true when the run ended in a switch of
    // mode, false at the end of the text or of the room.
    bool Latin_Conv_To_Wincode(Arab7Cursor& cursor);
    bool Arab_Conv_To_Wincode(Arab7Cursor& cursor);
    bool Latin_Conv_From_Wincode(Arab7Cursor& cursor);
    bool Arab_Conv_From_Wincode(Arab7Cursor& cursor);
    static bool isLatin(unsigned char ch);
    void Set_Arabic_Major() { arabicMajor_ = 1; }
    void Set_Latin_Major() { arabicMajor_ = 0; }

    // Loads the conversion tables of the current code page (when it needs any).
    void LoadMatchTables();
    // Reads a 7-bit Arabic index file and builds the Arabic tables from it.
    void init_arab7(const wchar_t* path);

private:
    struct ReverseByteIndex;

    bool SelectCodePage(uint32_t codePage);
    bool HasArabicTables() const { return arabToWindows_ != nullptr; }
    // The byte the 8-bit tables give a character, '_' when none.
    int ByteOf(wchar_t ch) const;
    void LoadByteTable(const wchar_t* path);

    uint32_t codePageId_ = 0;
    qovaCodePageEnum codePageType_ = qovaCodePageDefault;
    std::unique_ptr<LdidTable> ldidTable_;
    std::unique_ptr<ReverseLdidTable> reverseLdidTable_;
    // Unicode values of the bytes 0x80..0xFF (entry = byte - 128).
    std::unique_ptr<uint16_t[]> forwardTable_;
    std::unique_ptr<ReverseByteMap> reverseMap_;
    std::unique_ptr<ReverseByteIndex> reverseIndex_;  // reverseMap_ for constant-time lookups
    uint32_t arabicMajor_ = 0;
    std::unique_ptr<unsigned char[]> arabToWindows_;    // 256 bytes
    std::unique_ptr<unsigned char[]> arabFromWindows_;  // 256 bytes
    std::unique_ptr<unsigned char[]> arab7Index_;       // 64 bytes
};

}  // namespace quillet
