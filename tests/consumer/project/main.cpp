// A program outside the project that uses the installed library: it writes
// and reads a file, and converts text of a code page whose conversion needs
// one of the installed table files.
#include <cstdio>
#include <cstring>
#include <stdlib.h>

#include "codepage/CodePage.h"
#include "foundation/ByteOrder.h"
#include "foundation/File.h"
#include "foundation/String.h"

namespace {

bool FileRoundTrip() {
    char path[] = "/tmp/quillet-consumer-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return false;
    quillet::String wide(path);
    quillet::File file(wide.c_str());
    int32_t value = 9994;
    quillet::SwapInt(&value, 1);
    bool ok = file.Create(1, 0) && file.Write(&value, 4) == 4 && file.Close();
    int32_t back = 0;
    ok = ok && file.Open(1, 1, 0, 0, 0) && file.Read(&back, 4) == 4;
    quillet::SwapInt(&back, 1);
    file.Delete();
    return ok && back == 9994;
}

// "Moskva" in Cyrillic, as code page 866 stores it.
bool ReadsCodePage866() {
    quillet::CodePage codePage(static_cast<uint32_t>(866));
    wchar_t text[16] = {};
    return codePage.Source2Native("\x8C\xAE\xE1\xAA\xA2\xA0", text, 16) &&
           std::wcscmp(text, L"\u041C\u043E\u0441\u043A\u0432\u0430") == 0;
}

}  // namespace

int main() {
    bool file = FileRoundTrip();
    bool text = ReadsCodePage866();
    std::printf("file %s, code page 866 %s\n", file ? "ok" : "failed", text ? "ok" : "failed");
    return file && text ? 0 : 1;
}
