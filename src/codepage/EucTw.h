#pragma once

// EUC-TW, the EUC form of CNS 11643 used in Chinese locales outside the
// mainland and Singapore. Internal to the code page subsystem.

#include <cstdint>

namespace quillet {

// Decodes up to size - 1 characters and terminates them; undecodable bytes
// become U+FFFD. Nothing is written when size is 0.
void DecodeEucTw(const char* src, wchar_t* dst, uint32_t size);
// Encodes within size - 1 bytes and terminates; characters without a CNS
// 11643 code become "?". Nothing is written when size is 0.
void EncodeEucTw(const wchar_t* src, char* dst, uint32_t size);

}  // namespace quillet
