#pragma once

// KeyTextCodec: the text keys of an index as its nodes hold them.
//
// MTString: the text in the index's code page, cut at the key width and
// padded with spaces to it, no terminator. MTWString: one 16-bit unit per
// character (cut to 16 bits), width / 2 units padded with 0x0020, no
// terminator; in memory the units are native, as are all values. Reading
// back strips trailing spaces and zeros.
//
// Code pages that write ASCII as ASCII (nearly all) take a shortcut for ASCII
// text, so that comparing and storing plain keys costs no conversion call.
// Nothing here allocates.

#include <cstdint>

#include "attrindex/MTKey.h"
#include "foundation/HResult.h"

namespace quillet {

class KeyTextCodec {
public:
    // Room a decoded key needs, terminator included.
    static constexpr int32_t kDecodedChars = MTKey::kMaxChars + 1;

    void Setup(MTDataType type, int32_t width, uint32_t codePage);

    // Writes the key bytes of `text` (null counts as empty) into out[width].
    // E_INVALIDARG when the code page cannot convert it.
    HRESULT Encode(const wchar_t* text, unsigned char* out) const;
    // Reads the key bytes in[width] into out[kDecodedChars], zero-terminated,
    // padding stripped; the number of characters.
    int32_t Decode(const unsigned char* in, wchar_t* out) const;
    // The characters over which two keys are compared.
    int32_t GetCompareChars() const { return type_ == MTWString ? width_ / 2 : width_; }

private:
    HRESULT EncodeNarrow(const wchar_t* text, unsigned char* out) const;
    int32_t DecodeNarrow(const unsigned char* in, wchar_t* out) const;

    MTDataType type_ = MTNone;
    int32_t width_ = 0;
    uint32_t codePage_ = 0;
    bool asciiAsIs_ = false;
};

}  // namespace quillet
