// A program outside the project that uses the installed library.
#include <cstdio>
#include <cstring>
#include <stdlib.h>

#include "foundation/ByteOrder.h"
#include "foundation/File.h"
#include "foundation/String.h"

int main() {
    char path[] = "/tmp/quillet-consumer-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return 1;
    quillet::String wide(path);
    quillet::File file(wide.c_str());
    int32_t value = 9994;
    quillet::SwapInt(&value, 1);
    bool ok = file.Create(1, 0) && file.Write(&value, 4) == 4 && file.Close();
    int32_t back = 0;
    ok = ok && file.Open(1, 1, 0, 0, 0) && file.Read(&back, 4) == 4;
    quillet::SwapInt(&back, 1);
    file.Delete();
    std::printf("%s\n", ok && back == 9994 ? "ok" : "failed");
    return ok && back == 9994 ? 0 : 1;
}
