#pragma once

#include <memory>

#include "foundation/SystemCodec.h"

namespace quillet::codec {

// UTF-8, converted without iconv.
std::unique_ptr<Codec> MakeUtf8Codec();

}  // namespace quillet::codec
