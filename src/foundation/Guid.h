#pragma once

// Class ids of the component model and their text form, as the platform's
// StringFromCLSID makes it: "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in upper
// case hexadecimal. Memory the component model hands out is freed with
// CoTaskMemFree.

#include <cstddef>
#include <cstdint>

#include "foundation/Export.h"
#include "foundation/HResult.h"

namespace quillet {

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];

    friend bool operator==(const GUID& a, const GUID& b) = default;
};
using CLSID = GUID;
using IID = GUID;

// The coordinate system of data whose projection is not known. A shape file's
// projection text equal to this id's string form means "unknown".
QUILLET_EXPORT extern const CLSID CLSID_UnknownCoordinateSystem;
// The platform's set of record ids (IFIDSet).
QUILLET_EXPORT extern const CLSID CLSID_FIDSet;

QUILLET_EXPORT void* CoTaskMemAlloc(size_t bytes);
QUILLET_EXPORT void CoTaskMemFree(void* memory);

// Writes the braced text (39 characters with the terminator) into `out` of
// `size` characters; returns the characters written with the terminator, 0
// when it does not fit.
QUILLET_EXPORT int StringFromGUID2(const GUID& id, wchar_t* out, int size);
// Allocates the braced text with CoTaskMemAlloc into *out.
QUILLET_EXPORT HRESULT StringFromCLSID(const CLSID& id, wchar_t** out);

}  // namespace quillet
