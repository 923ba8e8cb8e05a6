#include "foundation/SqlParse.h"

namespace quillet {

bool SqlParse::PatternMatch(const wchar_t* text, const wchar_t* pattern) {
    const wchar_t* t = text ? text : L"";
    const wchar_t* p = pattern ? pattern : L"";
    // Where to resume after the last "%": the pattern just past it, and the
    // text position that "%" is taken to end at. Retrying only the last "%"
    // suffices: an earlier one can never need to swallow more.
    const wchar_t* afterPercent = nullptr;
    const wchar_t* resumeText = nullptr;
    while (*t) {
        if (*p == L'%') {
            afterPercent = ++p;
            resumeText = t;
        } else if (*p && (*p == L'_' || *p == *t)) {
            ++p;
            ++t;
        } else if (afterPercent) {
            p = afterPercent;
            t = ++resumeText;
        } else {
            return false;
        }
    }
    while (*p == L'%') ++p;
    return *p == L'\0';
}

int SqlParse::lstrncmp_pad(const wchar_t* a, const wchar_t* b, int n) {
    const wchar_t* x = a ? a : L"";
    const wchar_t* y = b ? b : L"";
    for (int i = 0; i < n; ++i) {
        if (!*x && !*y) return 0;
        wchar_t cx = *x ? *x++ : L' ';
        wchar_t cy = *y ? *y++ : L' ';
        if (cx != cy) return cx < cy ? -1 : 1;
    }
    return 0;
}

}  // namespace quillet
