#pragma once

#include <array>
#include <memory>

#include "foundation/SystemCodec.h"

namespace quillet::codec {

// A single-byte code page as two tables: byte -> wide (`toWide`), and wide
// -> byte (the lowest byte of a character that several bytes stand for).
std::unique_ptr<Codec> MakeSingleByteCodec(const std::array<wchar_t, 256>& toWide);

}  // namespace quillet::codec
