#include "foundation/Guid.h"

#include <cstdlib>
#include <cwchar>

namespace quillet {

const CLSID CLSID_UnknownCoordinateSystem = {
    0x76D7AA9Du, 0x5D26u, 0x4AF1u, {0x9F, 0x1A, 0x30, 0xC4, 0x4B, 0x6E, 0x21, 0x07}};
const CLSID CLSID_FIDSet = {
    0xD79BDAF1u, 0x6C61u, 0x4B2Fu, {0x8E, 0x05, 0x4F, 0x3B, 0x92, 0xA7, 0x11, 0xC6}};

void* CoTaskMemAlloc(size_t bytes) { return std::malloc(bytes); }

void CoTaskMemFree(void* memory) { std::free(memory); }

int StringFromGUID2(const GUID& id, wchar_t* out, int size) {
    constexpr int kLength = 39;
    if (!out || size < kLength) return 0;
    std::swprintf(out, static_cast<size_t>(size),
                  L"{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1, id.Data2,
                  id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4],
                  id.Data4[5], id.Data4[6], id.Data4[7]);
    return kLength;
}

HRESULT StringFromCLSID(const CLSID& id, wchar_t** out) {
    if (!out) return E_POINTER;
    constexpr int kLength = 39;
    auto* text = static_cast<wchar_t*>(CoTaskMemAlloc(kLength * sizeof(wchar_t)));
    if (!text) return E_OUTOFMEMORY;
    StringFromGUID2(id, text, kLength);
    *out = text;
    return S_OK;
}

}  // namespace quillet
