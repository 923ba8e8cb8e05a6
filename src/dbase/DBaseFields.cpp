// DBase: field values of the current record as text, numbers, dates and
// logicals. Getters cut a field out of the record buffer; setters write into
// the buffer only and mark the record changed.

#include <algorithm>
#include <cstring>

#include "dbase/DBase.h"
#include "dbase/NumericText.h"
#include "foundation/AsciiRun.h"
#include "foundation/SystemCodePage.h"

namespace quillet {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsTrueLetter(char c) { return c == 'T' || c == 't' || c == 'Y' || c == 'y' || c == '1'; }

// Trailing blanks are found eight bytes at a time: a full table scan reads
// every field of every record, and text fields are mostly padding.
constexpr uint64_t kEightSpaces = 0x2020202020202020ull;

uint64_t LoadEight(const char* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The length without trailing spaces; the first byte always stays.
int TrimmedLength(const char* bytes, int length) {
    while (length > 8 && LoadEight(bytes + length - 8) == kEightSpaces) length -= 8;
    while (length > 1 && bytes[length - 1] == ' ') --length;
    return length;
}

// Trailing spaces go, but never the first byte: a blank field reads as one
// space. The text ends at a zero byte, as the C library's conversions end.
int TextLength(const char* bytes, int width) {
    int length = TrimmedLength(bytes, width);
    if (const void* zero = std::memchr(bytes, 0, static_cast<size_t>(length))) {
        length = static_cast<int>(static_cast<const char*>(zero) - bytes);
    }
    return length;
}

}  // namespace

// --- Getters ----------------------------------------------------------------

const char* DBase::GetFieldPointer(int field) {
    const FieldEntry* entry = FieldForRead(field);
    if (!entry) {
        if (!narrow_.empty()) narrow_[0] = '\0';
        return narrow_.empty() ? "" : narrow_.data();
    }
    std::memcpy(narrow_.data(), record_.data() + entry->offset, static_cast<size_t>(entry->width));
    narrow_[static_cast<size_t>(entry->width)] = '\0';
    return narrow_.data();
}

int DBase::GetFieldAscii(int field, const char** text) {
    const FieldEntry* entry = FieldForRead(field);
    if (!entry || !asciiIsIdentity_) return -1;
    const char* bytes = record_.data() + entry->offset;
    int length = TextLength(bytes, entry->width);
    for (int i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80) return -1;
    }
    *text = bytes;
    return length;
}

String DBase::GetFieldString(int field) {
    // One named result on every path, so that it is built in the caller's
    // object.
    String text;
    const FieldEntry* entry = FieldForRead(field);
    if (!entry) return text;
    const char* bytes = record_.data() + entry->offset;
    int length = TextLength(bytes, entry->width);
    // ASCII, nearly all of what tables hold, is widened straight into the
    // result; anything else goes through the code page.
    const auto* narrow = reinterpret_cast<const unsigned char*>(bytes);
    if (asciiIsIdentity_ &&
        WidenAscii(narrow, static_cast<size_t>(length), text.GetBufferSetLength(length)) ==
            static_cast<size_t>(length)) {
        return text;
    }
    std::memcpy(narrow_.data(), bytes, static_cast<size_t>(length));
    narrow_[static_cast<size_t>(length)] = '\0';
    wide_[0] = L'\0';
    codePage_.Source2Native(narrow_.data(), wide_.data(), static_cast<uint32_t>(wide_.size()));
    wide_.back() = L'\0';
    text = wide_.data();
    return text;
}

double DBase::GetFieldDouble(int field) {
    const FieldEntry* entry = FieldForRead(field);
    if (!entry) return 0.0;
    return numeric_text::Parse(record_.data() + entry->offset, entry->width);
}

int32_t DBase::GetFieldInteger(int field) {
    if (GetFieldType(field) == qovaLogical) return GetFieldLogical(field) ? 1 : 0;
    return numeric_text::TruncateToInt32(GetFieldDouble(field));
}

bool DBase::GetFieldLogical(int field) {
    const FieldEntry* entry = FieldForRead(field);
    return entry && IsTrueLetter(record_[static_cast<size_t>(entry->offset)]);
}

DBase::DateRec DBase::GetFieldDate(int field) {
    DateRec date;
    const FieldEntry* entry = FieldForRead(field);
    if (!entry) return date;
    char bytes[8];
    std::memset(bytes, ' ', sizeof bytes);
    std::memcpy(bytes, record_.data() + entry->offset, static_cast<size_t>(std::min(entry->width, 8)));
    wchar_t wide[8];
    if (!OemToCharBuffW(bytes, wide, 8)) return date;
    std::copy(wide, wide + 4, date.year);
    std::copy(wide + 4, wide + 6, date.month);
    std::copy(wide + 6, wide + 8, date.day);
    return date;
}

// --- Setters ----------------------------------------------------------------

bool DBase::WriteText(const FieldEntry& entry, const char* text, int length) {
    char* out = record_.data() + entry.offset;
    int copied = std::min(length, entry.width);
    std::memcpy(out, text, static_cast<size_t>(copied));
    std::memset(out + copied, ' ', static_cast<size_t>(entry.width - copied));
    return MarkChanged();
}

bool DBase::MarkChanged() {
    recordChanged_ = true;
    status_ = kStatusOk;
    return true;
}

bool DBase::SetFieldNull(int field) {
    FieldEntry* entry = FieldForWrite(field);
    if (!entry) return false;
    if (entry->type == qovaMemo) {
        status_ = kStatusNoRecord;
        return false;
    }
    return WriteText(*entry, "", 0);
}

bool DBase::SetFieldLogical(int field, bool value) {
    FieldEntry* entry = FieldForWrite(field);
    return entry && WriteText(*entry, value ? "Y" : "N", 1);
}

bool DBase::SetFieldDate(int field, const DateRec& value) {
    FieldEntry* entry = FieldForWrite(field);
    if (!entry) return false;
    char bytes[8];
    const wchar_t* parts[] = {value.year, value.month, value.day};
    const int sizes[] = {4, 2, 2};
    int at = 0;
    for (int part = 0; part < 3; ++part) {
        for (int i = 0; i < sizes[part]; ++i) bytes[at++] = static_cast<char>(parts[part][i] & 0xFF);
    }
    return WriteText(*entry, bytes, 8);
}

bool DBase::SetFieldInteger(int field, int32_t value) {
    if (GetFieldType(field) == qovaLogical) return SetFieldLogical(field, value != 0);
    FieldEntry* entry = FieldForWrite(field);
    if (!entry) return false;
    numeric_text::FormatInteger(value, entry->width, record_.data() + entry->offset);
    return MarkChanged();
}

bool DBase::SetFieldDouble(int field, double value) {
    FieldEntry* entry = FieldForWrite(field);
    if (!entry) return false;
    numeric_text::FormatDouble(value, entry->type, entry->width, entry->decimals, record_.data() + entry->offset);
    return MarkChanged();
}

bool DBase::SetFieldFloat(int field, float value) { return SetFieldDouble(field, static_cast<double>(value)); }

const char* DBase::ConvertToTable(const String& value, int size) {
    size = std::min(size, static_cast<int>(narrow_.size()) - 1);
    std::memset(narrow_.data(), 0, static_cast<size_t>(size) + 1);
    codePage_.Native2Source(value.c_str(), narrow_.data(), static_cast<uint32_t>(size));
    narrow_[static_cast<size_t>(size)] = '\0';
    return narrow_.data();
}

bool DBase::SetFieldString(int field, const String& value) {
    FieldEntry* entry = FieldForWrite(field);
    if (!entry) return false;
    switch (entry->type) {
        case qovaCharacter:
            return SetCharacterText(*entry, value);
        case qovaDate:
            return SetDateText(*entry, ConvertToTable(value, static_cast<int>(narrow_.size())));
        case qovaLogical:
            return SetLogicalText(*entry, ConvertToTable(value, static_cast<int>(narrow_.size())));
        case qovaFloat:
        case qovaNumeric: {
            String text = value;
            text.TrimLeft();
            return SetNumberText(*entry, ConvertToTable(text, static_cast<int>(narrow_.size())));
        }
        default:
            // Fields of other kinds take no text, but the call counts as a
            // change of the record.
            return MarkChanged();
    }
}

bool DBase::SetCharacterText(FieldEntry& entry, const String& value) {
    const char* text = ConvertToTable(value, entry.width + 1);
    int length = static_cast<int>(std::strlen(text));
    WriteText(entry, text, length);
    if (length > entry.width) status_ = kStatusTruncated;
    return true;
}

bool DBase::SetDateText(FieldEntry& entry, const char* text) {
    // YYYY-MM-DD with "-", "/" or "\\" between the parts; the tens of the
    // month and day bound their units (no month 13, no day 32), but there is
    // no calendar check. Position 8 itself is never checked: its range test
    // could not be true and is kept so.
    auto isSeparator = [](char c) { return c == '-' || c == '/' || c == '\\'; };
    bool valid = std::strlen(text) == 10 && IsDigit(text[0]) && IsDigit(text[1]) && IsDigit(text[2]) &&
                 IsDigit(text[3]) && isSeparator(text[4]) && (text[5] == '0' || text[5] == '1') &&
                 IsDigit(text[6]) && (text[5] != '1' || text[6] <= '2') && isSeparator(text[7]) &&
                 IsDigit(text[9]) && (text[8] != '3' || text[9] <= '1');
    if (!valid) {
        status_ = kStatusMalformedText;
        return false;
    }
    const char bytes[8] = {text[0], text[1], text[2], text[3], text[5], text[6], text[8], text[9]};
    return WriteText(entry, bytes, 8);
}

bool DBase::SetLogicalText(FieldEntry& entry, const char* text) {
    switch (text[0]) {
        case ' ':
        case '?':
            return WriteText(entry, "?", 1);
        case '0':
        case 'F':
        case 'N':
        case 'f':
        case 'n':
            return WriteText(entry, "N", 1);
        case '1':
        case 'T':
        case 'Y':
        case 't':
        case 'y':
            return WriteText(entry, "Y", 1);
        default:
            status_ = kStatusMalformedText;
            return false;
    }
}

bool DBase::SetNumberText(FieldEntry& entry, const char* text) {
    char* out = record_.data() + entry.offset;
    int status = numeric_text::Layout(text, entry.type, entry.width, entry.decimals, out);
    if (status != kStatusOk) {
        status_ = status;
        return false;
    }
    return MarkChanged();
}

}  // namespace quillet
