// The system code page conversions on arbitrary bytes: the first byte picks
// the code page, the second the room of the destination; every conversion must
// stay within that room and a decoded text must encode again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "foundation/SystemCodePage.h"

namespace {

constexpr uint32_t kCodePages[] = {1252, 437, 850, 1251, 874, 932, 936, 949, 950, 65001};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    uint32_t codePage = kCodePages[data[0] % std::size(kCodePages)];
    int room = data[1] + 1;  // a room of 0 would ask for the size instead
    const char* text = reinterpret_cast<const char*>(data + 2);
    int length = static_cast<int>(size - 2);

    // Exactly sized allocations, so that a write past the room is caught.
    std::vector<wchar_t> wide(static_cast<size_t>(room) + 1);
    int needed = quillet::MultiByteToWideChar(codePage, 0, text, length, nullptr, 0);
    int written = quillet::MultiByteToWideChar(codePage, 0, text, length, wide.data(), room);
    if (written > room || (written != 0 && written != needed)) std::abort();
    if (written == 0) return 0;

    std::vector<char> bytes(static_cast<size_t>(room) + 1);
    int encodedNeeded =
        quillet::WideCharToMultiByte(codePage, 0, wide.data(), written, nullptr, 0, nullptr, nullptr);
    int encoded = quillet::WideCharToMultiByte(codePage, 0, wide.data(), written, bytes.data(), room,
                                               nullptr, nullptr);
    if (encodedNeeded == 0 || encoded > room || (encoded != 0 && encoded != encodedNeeded)) std::abort();
    return 0;
}
