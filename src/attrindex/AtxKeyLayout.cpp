#include "attrindex/AtxKeyLayout.h"

#include <cmath>
#include <cstring>

namespace quillet {

namespace {

template <typename T>
T Load(const unsigned char* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

template <typename T>
void Put(unsigned char* p, T value) {
    std::memcpy(p, &value, sizeof value);
}

int32_t Word(const unsigned char* node, int32_t i) {
    return Load<int32_t>(node + 4 * i);
}

int Sign(double a, double b) {
    bool aNan = std::isnan(a);
    bool bNan = std::isnan(b);
    if (aNan || bNan) return aNan == bNan ? 0 : (aNan ? 1 : -1);
    return a < b ? -1 : (a > b ? 1 : 0);
}

template <typename T>
void SwapKeys(unsigned char* keys, int32_t count, int32_t stride) {
    for (int32_t i = 0; i < count; ++i) {
        unsigned char* p = keys + i * stride;
        unsigned char bytes[sizeof(T)];
        for (size_t b = 0; b < sizeof(T); ++b) bytes[b] = p[sizeof(T) - 1 - b];
        std::memcpy(p, bytes, sizeof(T));
    }
}

}  // namespace

AtxKeyLayout AtxKeyLayout::Make(KeyClass keyClass, int32_t width, int32_t stride) {
    AtxKeyLayout layout;
    layout.keyClass = keyClass;
    layout.width = width;
    layout.stride = stride;
    if (width < 1 || stride < width) return layout;
    int32_t q = (kNodeWords - 4) / ((width + 3) / 4 + 1);
    layout.maxKeys = (q - 1) % 2 == 1 ? q - 1 : q - 2;
    layout.keysOffset = 16 + 4 * layout.maxKeys;
    if (layout.keysOffset + layout.maxKeys * stride > kNodeSize) layout.maxKeys = 0;
    return layout;
}

double AtxKeyLayout::NumberOf(const unsigned char* key) const {
    switch (keyClass) {
        case kShort: return Load<int16_t>(key);
        case kLong: return Load<int32_t>(key);
        case kFloat: return Load<float>(key);
        case kDouble: return Load<double>(key);
        case kText: break;
    }
    return 0;
}

bool AtxKeyLayout::StoreNumber(double value, unsigned char* key) const {
    switch (keyClass) {
        case kShort:
            if (!(value > -32769.0 && value < 32768.0)) return false;
            Put(key, static_cast<int16_t>(value));
            return true;
        case kLong:
            if (!(value > -2147483649.0 && value < 2147483648.0)) return false;
            Put(key, static_cast<int32_t>(value));
            return true;
        case kFloat: Put(key, static_cast<float>(value)); return true;
        case kDouble: Put(key, value); return true;
        case kText: break;
    }
    return false;
}

void AtxKeyLayout::StoreText(const char* text, unsigned char* key) const {
    StoreText(text, text ? std::strlen(text) : 0, key);
}

void AtxKeyLayout::StoreText(const char* text, size_t length, unsigned char* key) const {
    size_t n = length < static_cast<size_t>(width) ? length : static_cast<size_t>(width);
    if (n > 0) std::memcpy(key, text, n);
    std::memset(key + n, ' ', static_cast<size_t>(width) - n);
}

int AtxKeyLayout::Compare(const unsigned char* a, const unsigned char* b) const {
    if (keyClass == kText) {
        int c = std::memcmp(a, b, static_cast<size_t>(width));
        return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    return Sign(NumberOf(a), NumberOf(b));
}

void AtxKeyLayout::SwapNode(unsigned char* node, int32_t count) const {
    SwapKeys<int32_t>(node, count + 3, 4);
    unsigned char* keys = node + keysOffset;
    switch (keyClass) {
        case kShort: SwapKeys<int16_t>(keys, count, stride); break;
        case kLong: SwapKeys<int32_t>(keys, count, stride); break;
        case kFloat: SwapKeys<float>(keys, count, stride); break;
        case kDouble: SwapKeys<double>(keys, count, stride); break;
        case kText: break;
    }
}

void AtxKeyLayout::ToDisk(const unsigned char* host, unsigned char* disk) const {
    std::memcpy(disk, host, kNodeSize);
    int32_t count = Word(host, 1);
    SwapNode(disk, count < 0 || count > maxKeys ? 0 : count);
}

bool AtxKeyLayout::FromDisk(unsigned char* node) const {
    int32_t count = static_cast<int32_t>(uint32_t{node[4]} << 24 | uint32_t{node[5]} << 16 |
                                         uint32_t{node[6]} << 8 | uint32_t{node[7]});
    if (count < 0 || count > maxKeys) return false;
    SwapNode(node, count);
    return true;
}

}  // namespace quillet
