#pragma once

#include <memory>
#include <string>

#include "foundation/SystemCodec.h"

namespace quillet::codec {

// A code page through iconv, named as iconv names it. Descriptors carry
// conversion state, so each thread gets its own pair.
std::unique_ptr<Codec> MakeIconvCodec(std::string name);

}  // namespace quillet::codec
