// Fuzzes Source2Native and Native2Source on every kind of code page: random
// bytes (and random wide characters) of random lengths into destinations of
// random size. Source and destination are heap buffers of exactly their size,
// so that a read past the source's terminator or a write past `size` is caught
// by the address sanitizer.
//
// Input: [setup] [size low] [size high] [text...]. The setup picks a locale
// and a code page; the text is converted as bytes, then read again as wide
// characters (4 bytes each) and converted back.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "codepage/CodePage.h"

namespace {

struct Setup {
    const char* language;
    const char* country;
    const char* ansi;
    const char* oem;
    uint32_t codePage;
};

// One of each converter: system ANSI and OEM, 8-bit tables (ANSI, OEM, ISO),
// ISO without a table, UTF-8, both 7-bit Arabic code pages, EUC-JP, EUC-TW,
// the ANSI path of a Chinese locale, and a multi-byte OEM code page.
const Setup kSetups[] = {
    {"9", "1", "1252", "437", 1252},    {"9", "1", "1252", "437", 437},
    {"9", "1", "1252", "437", 1253},    {"9", "1", "1252", "437", 850},
    {"9", "1", "1252", "437", 88592},   {"9", "1", "1252", "437", 885912},
    {"9", "1", "1252", "437", 65001},   {"1", "20", "1256", "720", 449},
    {"1", "20", "1256", "720", 448},    {"17", "81", "932", "932", 885932},
    {"4", "886", "950", "950", 885950}, {"4", "4", "936", "936", 885950},
    {"17", "81", "932", "932", 932},    {"9", "1", "1252", "437", 88591},
};

void Apply(const Setup& setup) {
    setenv("QUILLET_LANGID", setup.language, 1);
    setenv("QUILLET_COUNTRYID", setup.country, 1);
    setenv("QUILLET_ACP", setup.ansi, 1);
    setenv("QUILLET_OEMCP", setup.oem, 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t length) {
    if (length < 3) return 0;
    const Setup& setup = kSetups[data[0] % std::size(kSetups)];
    uint32_t size = data[1] | (data[2] & 0x03) << 8;
    data += 3;
    length -= 3;
    Apply(setup);
    quillet::CodePage page(setup.codePage);
    if (data[-3] & 0x80) page.Set_Arabic_Major();

    auto bytes = std::make_unique<char[]>(length + 1);
    std::memcpy(bytes.get(), data, length);
    bytes[length] = '\0';
    auto wide = std::make_unique<wchar_t[]>(size);
    page.Source2Native(bytes.get(), wide.get(), size);

    size_t chars = length / sizeof(wchar_t);
    auto text = std::make_unique<wchar_t[]>(chars + 1);
    std::memcpy(text.get(), data, chars * sizeof(wchar_t));
    text[chars] = L'\0';
    auto narrow = std::make_unique<char[]>(size);
    page.Native2Source(text.get(), narrow.get(), size);
    page.GetByteLength(text.get());
    return 0;
}
