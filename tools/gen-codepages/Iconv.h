#pragma once

// Decoding single byte sequences with glibc's iconv, for the generator.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <iconv.h>

namespace gencp {

// One iconv decoder from a named character set to UCS-4.
class Decoder {
public:
    explicit Decoder(const std::string& charset);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    bool IsOpen() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
    // The one character that `bytes` stand for, or nothing when they do not
    // decode to exactly one character.
    std::optional<uint32_t> DecodeOne(std::string_view bytes);

private:
    iconv_t cd_;
};

// The first of `names` that iconv knows, or empty.
std::string FirstKnownCharset(const std::vector<std::string>& names);

}  // namespace gencp
