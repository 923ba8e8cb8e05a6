// Cleaning of the field names read from a table: every name unique (ignoring
// case) and none of the names the platform reserves for its own columns.

#include <algorithm>

#include "dbase/DBase.h"

namespace quillet {

namespace {

const wchar_t* const kReservedNames[] = {L"OID", L"FID", L"SHAPE"};

// A hostile table could name a thousand fields alike; renaming stops after
// this many attempts for one name rather than run on.
constexpr int kMaxRenames = 100000;

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

wchar_t LastChar(const String& name) {
    return name.IsEmpty() ? L'\0' : name.GetAt(name.GetLength() - 1);
}

}  // namespace

void DBase::RemoveUnnecessarySpaces(StringArray& names) {
    for (int i = 0; i < names.GetSize(); ++i) names[i].Trim();
}

bool DBase::FixDuplicatedFieldNames(StringArray& names) {
    if (names.GetSize() == 0) return false;
    for (int i = 0; i < names.GetSize(); ++i) {
        if (CheckDuplicateFieldName(i, names)) CorrectDuplicateFieldName(i, names);
    }
    return true;
}

bool DBase::CheckDuplicateFieldName(int32_t index, StringArray& names) {
    const String& name = names[index];
    if (name.IsEmpty()) return false;
    for (const wchar_t* reserved : kReservedNames) {
        if (CompareNoCase(name.view(), reserved) == 0) return true;
    }
    for (int i = 0; i < index; ++i) {
        if (CompareNoCase(name.view(), names[i].view()) == 0) return true;
    }
    return false;
}

void DBase::FindAddOnChar(const String& name, wchar_t* addOn) {
    wchar_t c = LastChar(name);
    if (c >= L'0' && c <= L'8') {
        *addOn = static_cast<wchar_t>(c + 1);
    } else if (c == L'_') {
        *addOn = L'1';
    } else {
        *addOn = L'_';
    }
}

void DBase::FindAddOnString(const String& name, String& addOn) {
    wchar_t c = LastChar(name);
    if (c == L'9') {
        int first = name.GetLength() - 1;
        while (first > 0 && IsDigit(name.GetAt(first - 1))) --first;
        long long value = 0;
        for (int i = first; i < name.GetLength(); ++i) value = value * 10 + (name.GetAt(i) - L'0');
        addOn.Format(L"%lld", value + 1);
        return;
    }
    wchar_t ch;
    FindAddOnChar(name, &ch);
    addOn = String();
    addOn += ch;
}

bool DBase::CorrectDuplicateFieldName(int32_t index, StringArray& names) {
    for (int attempt = 0; attempt < kMaxRenames; ++attempt) {
        String name = names[index];
        int length = name.GetLength();
        wchar_t addOnChar;
        FindAddOnChar(name, &addOnChar);
        if (LastChar(name) == L'9') {
            String addOn;
            FindAddOnString(name, addOn);
            if (length + addOn.GetLength() + 1 > kDBaseMaxFieldName) {
                name = name.Left(std::max(0, 9 - addOn.GetLength()));
            }
            name += L'_';
            name += addOn;
        } else if (addOnChar == L'_') {
            if (length + 2 > kDBaseMaxFieldName) name = name.Left(8);
            name += L"_1";
        } else {
            // The add-on character is appended, not substituted: a clashing
            // NAME_1 becomes NAME_12.
            if (length + 1 > kDBaseMaxFieldName) name = name.Left(9);
            name += addOnChar;
        }
        names.Set(index, name);
        if (!CheckDuplicateFieldName(index, names)) return true;
    }
    return false;
}

}  // namespace quillet
