// Choosing a code page and naming it back: numbers, `.cpg` texts, LDID bytes,
// kinds and the system code pages.

#include "codepage/CodePage.h"
#include "codepage/ReverseByteIndex.h"

#include <climits>
#include <cwchar>

#include "foundation/InstallDir.h"
#include "foundation/Locale.h"
#include "foundation/Settings.h"

namespace quillet {

namespace {

constexpr uint32_t kUtf8CodePage = 65001;
constexpr uint32_t kLocaleKeyFactor = 1000000;  // language id * factor + code page
constexpr unsigned char kAnsiLdid = 0x57;       // "W": the system ANSI code page
constexpr int kMaxIdDigits = 11;

// The C library's _wtol with a 32-bit long: leading blanks, an optional sign,
// decimal digits; saturates on overflow.
int32_t S_wtol(const wchar_t* text) {
    while (*text == L' ' || (*text >= L'\t' && *text <= L'\r')) ++text;
    bool negative = *text == L'-';
    if (*text == L'-' || *text == L'+') ++text;
    int64_t value = 0;
    for (; *text >= L'0' && *text <= L'9'; ++text) {
        value = value * 10 + (*text - L'0');
        if (value > INT32_MAX) return negative ? INT32_MIN : INT32_MAX;
    }
    return static_cast<int32_t>(negative ? -value : value);
}

uint32_t S_LocaleCodePage(uint32_t type) {
    wchar_t buffer[12] = {};
    GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, type, buffer, 12);
    return static_cast<uint32_t>(S_wtol(buffer));
}

// Appends `tail` to the zero-terminated text in `buffer` as far as it fits.
void S_Append(wchar_t* buffer, uint32_t size, const wchar_t* tail) {
    size_t used = wcsnlen(buffer, size);
    while (*tail && used + 1 < size) buffer[used++] = *tail++;
    if (used < size) buffer[used] = L'\0';
}

void S_CutAtLastSlash(wchar_t* buffer) {
    wchar_t* slash = std::wcsrchr(buffer, L'/');
    if (slash) *slash = L'\0';
}

}  // namespace

CodePage::CodePage() { Initialize(); }

CodePage::CodePage(const String& text) {
    if (!SetCodePage(text)) Initialize();
}

CodePage::CodePage(unsigned char ldid) {
    if (!SetCodePage(ldid)) Initialize();
}

CodePage::CodePage(qovaCodePageEnum kind) {
    if (!SetCodePage(kind)) Initialize();
}

CodePage::CodePage(uint32_t codePage) {
    if (!SetCodePage(codePage)) Initialize();
}

CodePage::~CodePage() = default;
CodePage::CodePage(CodePage&&) noexcept = default;
CodePage& CodePage::operator=(CodePage&&) noexcept = default;

void CodePage::Initialize() {
    codePageId_ = GetDefaultCP();
    codePageType_ = FindCodePageType(codePageId_);
    LoadMatchTables();
}

bool CodePage::SelectCodePage(uint32_t codePage) {
    if (codePage == codePageId_) return true;
    codePageId_ = codePage;
    codePageType_ = FindCodePageType(codePage);
    LoadMatchTables();
    return true;
}

bool CodePage::SetCodePage(const String& text) {
    uint32_t id = FindCodePageId(text);
    if (id == 0) return false;
    return SelectCodePage(id);
}

bool CodePage::SetCodePage(unsigned char ldid) {
    uint32_t codePage = 0;
    if (ldid == 0) {
        codePage = GetDefaultCP();
    } else if (ldid == kAnsiLdid) {
        codePage = GetAnsiCP();
    } else {
        if (!ldidTable_) LoadDBase2CPG();
        if (!ldidTable_ || !ldidTable_->Lookup(ldid, codePage)) return false;
    }
    return SetCodePage(codePage);
}

bool CodePage::SetCodePage(qovaCodePageEnum kind) {
    if (kind == codePageType_ && kind != qovaCodePageDefault) return true;
    switch (kind) {
        case qovaCodePageDefault:
            codePageId_ = GetDefaultCP();
            codePageType_ = FindCodePageType(codePageId_);
            LoadMatchTables();
            return true;
        // OEM, ANSI and UTF-8 leave the conversion tables as they were: the
        // system conversions serve them.
        case qovaCodePageOEM:
            codePageId_ = GetOemCP();
            codePageType_ = qovaCodePageOEM;
            return true;
        case qovaCodePageANSI:
            codePageId_ = GetAnsiCP();
            codePageType_ = qovaCodePageANSI;
            return true;
        case qovaCodePageISO:
            codePageId_ = GetIsoCP();
            codePageType_ = qovaCodePageISO;
            LoadMatchTables();
            return true;
        case qovaCodePageUTF8:
            codePageId_ = kUtf8CodePage;
            codePageType_ = qovaCodePageUTF8;
            return true;
    }
    return false;
}

bool CodePage::SetCodePage(uint32_t codePage) {
    if (codePage == 0) return false;
    if (codePage == codePageId_) return true;
    qovaCodePageEnum kind = FindCodePageType(codePage);
    if (kind == qovaCodePageDefault) {
        codePageId_ = GetDefaultCP();
        codePageType_ = FindCodePageType(codePageId_);
    } else {
        codePageId_ = codePage;
        codePageType_ = kind;
    }
    LoadMatchTables();
    return true;
}

CodePage::qovaCodePageEnum CodePage::FindCodePageType(uint32_t codePage) {
    if (codePage > 88590) return qovaCodePageISO;
    if (codePage == kUtf8CodePage) return qovaCodePageUTF8;
    if (codePage > 1249) return qovaCodePageANSI;
    if (codePage >= 1) return qovaCodePageOEM;
    return qovaCodePageDefault;
}

uint32_t CodePage::FindCodePageId(const String& text) {
    wchar_t digits[kMaxIdDigits + 1] = {};
    int count = 0;
    for (wchar_t ch : text.view()) {
        if (ch >= L'0' && ch <= L'9' && count < kMaxIdDigits) digits[count++] = ch;
    }
    int32_t number = S_wtol(digits);
    if (number >= 437 && number <= 885950) return static_cast<uint32_t>(number);

    struct NamedCodePage {
        const wchar_t* name;
        uint32_t (*codePage)();
    };
    static const NamedCodePage kNames[] = {
        {L"BIG5", [] { return 950u; }},
        {L"SJIS", [] { return 932u; }},
        {L"ALARABI", [] { return 448u; }},
        {L"OEM", GetOemCP},
        {L"ANSI", GetAnsiCP},
        {L"EUC", GetIsoCP},
        {L"ISO", GetIsoCP},
        {L"UTF8", [] { return kUtf8CodePage; }},
        {L"UTF-8", [] { return kUtf8CodePage; }},
    };
    for (const auto& named : kNames) {
        if (text.FindNoCase(named.name) >= 0) return named.codePage();
    }
    return 0;
}

String CodePage::GetCodePageName() const {
    switch (codePageType_) {
        case qovaCodePageOEM:
            if (codePageId_ == 448) return L"ALARABI";
            if (codePageId_ == 449) return L"ASMO 449";
            return String::Formatted(L"OEM %d", static_cast<int>(codePageId_));
        case qovaCodePageANSI:
            return String::Formatted(L"ANSI %d", static_cast<int>(codePageId_));
        case qovaCodePageISO:
            if (IsFarEast()) return L"EUC";
            return String::Formatted(L"ISO %d", static_cast<int>(codePageId_));
        case qovaCodePageUTF8:
            return L"UTF-8";
        default:
            return String::Formatted(L"Default %d", static_cast<int>(codePageId_));
    }
}

unsigned char CodePage::GetDBaseLDId() {
    if (!reverseLdidTable_) LoadCPG2DBase();
    uint32_t key = (QovaLocale::GetLangID() & 0xFFFFu) * kLocaleKeyFactor + codePageId_;
    unsigned char ldid = 0;
    if (reverseLdidTable_ && reverseLdidTable_->Lookup(key, ldid)) return ldid;
    return codePageType_ == qovaCodePageANSI ? kAnsiLdid : 0;
}

uint32_t CodePage::GetDefaultCP() {
    CRegKey key;
    uint32_t result = 0;
    if (key.Open(HKEY_CURRENT_USER, L"SOFTWARE\\QOVA\\Common\\CodePage", KEY_READ) == 0) {
        wchar_t value[12] = {};
        uint32_t bytes = sizeof value;
        if (key.QueryValue(value, L"dbfDefault", &bytes) == 0) {
            value[11] = L'\0';
            result = FindCodePageId(value);
        }
    }
    key.Close();
    return result != 0 ? result : GetAnsiCP();
}

uint32_t CodePage::GetAnsiCP() { return S_LocaleCodePage(LOCALE_IDEFAULTANSICODEPAGE); }

uint32_t CodePage::GetOemCP() { return S_LocaleCodePage(LOCALE_IDEFAULTCODEPAGE); }

uint32_t CodePage::GetIsoCP() {
    uint32_t ansi = GetAnsiCP();
    switch (ansi) {
        case 1252: return QovaLocale::GetLangID() == 9 ? 88591 : 885915;
        case 1250: return 88592;
        case 1251: return 88595;
        case 1253: return 88597;
        case 1254: return 88593;  // part 3, not 9: kept as tables have always named it
        case 1255: return 88598;
        case 1256: return 88596;
        case 1257: return 885913;
        case 874: return 885911;
        // "8859" and the last two digits stand for the EUC encodings.
        case 932: return 885932;
        case 950: return 885950;
        default: return ansi;
    }
}

bool CodePage::IsFarEast() {
    uint16_t language = QovaLocale::GetLangID();
    return language == 4 || language == 17 || language == 18;
}

void CodePage::GetDefaultPath(wchar_t* buffer, uint32_t size) {
    if (!buffer || size == 0) return;
    buffer[0] = L'\0';
    std::wstring dir = QovaSxS::GetCurrentInstallDir();
    if (!dir.empty()) {
        if (dir.size() < size) std::wmemcpy(buffer, dir.c_str(), dir.size() + 1);
    } else if (GetModuleFileNameW(GetModuleHandleW(L"Quillet.dll"), buffer, size) > 0) {
        buffer[size - 1] = L'\0';
        // The tables lie beside the folder that holds the module.
        S_CutAtLastSlash(buffer);
        S_CutAtLastSlash(buffer);
    } else {
        buffer[0] = L'\0';
    }
    S_Append(buffer, size, L"/locale/codepage");
}

}  // namespace quillet
