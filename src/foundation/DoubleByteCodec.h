#pragma once

#include <memory>
#include <string>

#include "foundation/SystemCodec.h"

namespace quillet::codec {

// A stateless code page of one- and two-byte characters in which bytes below
// 0x80 are ASCII (932, 936, 949, 950), converted through tables that iconv
// fills once; null when iconv shows the code page `name` to be otherwise.
std::unique_ptr<Codec> MakeDoubleByteCodec(const std::string& name);

}  // namespace quillet::codec
