#include "Iconv.h"

namespace gencp {

Decoder::Decoder(const std::string& charset) : cd_(iconv_open("UCS-4LE", charset.c_str())) {}

Decoder::~Decoder() {
    if (IsOpen()) iconv_close(cd_);
}

std::optional<uint32_t> Decoder::DecodeOne(std::string_view bytes) {
    if (!IsOpen()) return std::nullopt;
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    std::string in(bytes);
    unsigned char out[16];
    char* inPtr = in.data();
    size_t inLeft = in.size();
    char* outPtr = reinterpret_cast<char*>(out);
    size_t outLeft = sizeof out;
    if (iconv(cd_, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1)) return std::nullopt;
    // Stateful decoders (1255, 1258) hold back a base letter until the end.
    if (iconv(cd_, nullptr, nullptr, &outPtr, &outLeft) == static_cast<size_t>(-1)) return std::nullopt;
    if (inLeft != 0 || sizeof out - outLeft != 4) return std::nullopt;
    return uint32_t{out[0]} | uint32_t{out[1]} << 8 | uint32_t{out[2]} << 16 | uint32_t{out[3]} << 24;
}

std::string FirstKnownCharset(const std::vector<std::string>& names) {
    for (const auto& name : names) {
        if (Decoder(name).IsOpen()) return name;
    }
    return {};
}

}  // namespace gencp
