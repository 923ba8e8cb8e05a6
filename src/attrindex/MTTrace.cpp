// The trace of an index: one line per insert ("I", "B" in bulk load) and
// delete ("D"), "op,key,id", in the file named as the index followed by
// ".trace", and the replay of such a file. Keys are written as the node
// stores them: text in UTF-8, short and long and 64-bit integers in decimal,
// floats, doubles and dates with 15 significant digits. The record id stands
// after the last comma, so text keys may hold commas.

#include <cinttypes>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "attrindex/MTIndex.h"
#include "foundation/Utf8.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

template <typename T>
T Load(const unsigned char* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

// The key text of a trace line for key bytes of `type`.
std::string KeyText(MTDataType type, const unsigned char* bytes, const KeyTextCodec& codec) {
    char number[64];
    switch (type) {
        case MTString:
        case MTWString: {
            wchar_t text[KeyTextCodec::kDecodedChars];
            codec.Decode(bytes, text);
            return utf8::Encode(text);
        }
        case MTShort: std::snprintf(number, sizeof number, "%hd", Load<int16_t>(bytes)); break;
        case MTLong: std::snprintf(number, sizeof number, "%" PRId32, Load<int32_t>(bytes)); break;
        case MTInt64: std::snprintf(number, sizeof number, "%" PRId64, Load<int64_t>(bytes)); break;
        case MTFloat:
            std::snprintf(number, sizeof number, "%.15g", static_cast<double>(Load<float>(bytes)));
            break;
        default: std::snprintf(number, sizeof number, "%.15g", Load<double>(bytes)); break;
    }
    return number;
}

// The key of a trace line's key text; false when it is not one.
bool ParseKey(MTDataType type, const std::string& text, MTKey& key) {
    if (IsStringType(type)) {
        key.SetString(utf8::Decode(text).c_str(), true);
        return true;
    }
    if (text.empty()) return false;
    char* end = nullptr;
    if (type == MTShort || type == MTLong || type == MTInt64) {
        long long value = std::strtoll(text.c_str(), &end, 10);
        key.SetInt64(value);
    } else {
        double value = std::strtod(text.c_str(), &end);
        key.SetDouble(value);
    }
    return end && *end == '\0';
}

}  // namespace

HRESULT MTIndex::SetTrace(bool enable) {
    tracing_ = enable;
    if (enable || !traceFile_) return S_OK;
    int closed = std::fclose(traceFile_);
    traceFile_ = nullptr;
    return closed == 0 ? S_OK : E_FAIL;
}

HRESULT MTIndex::Trace(wchar_t op, const MTKey& key, int32_t id) {
    if (!IsOpen()) return E_UNEXPECTED;
    unsigned char bytes[kMaxStringWidth];
    HRESULT hr = CacheAt(0).EncodeKey(key, bytes);
    if (FAILED(hr)) return hr;
    if (!traceFile_) {
        std::string path = NativePath((path_ + L".trace").c_str());
        traceFile_ = std::fopen(path.c_str(), "a");
        if (!traceFile_) {
            Report(L"cannot open the trace file");
            return E_FAIL;
        }
    }
    std::string line = KeyText(type_, bytes, codec_);
    // A trace is for finding what went wrong, so each line reaches the file
    // at once.
    if (std::fprintf(traceFile_, "%c,%s,%" PRId32 "\n", static_cast<char>(op), line.c_str(), id) <
            0 ||
        std::fflush(traceFile_) != 0) {
        Report(L"writing the trace failed");
        return E_FAIL;
    }
    return S_OK;
}

HRESULT MTIndex::ReplayTrace(const wchar_t* path) {
    if (!IsOpen()) return E_UNEXPECTED;
    if (!path) return E_POINTER;
    std::ifstream in(NativePath(path), std::ios::binary);
    if (!in) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    // Replaying must not trace into the file it may be reading.
    bool wasTracing = tracing_;
    tracing_ = false;
    HRESULT hr = S_OK;
    std::string line;
    for (int32_t number = 1; SUCCEEDED(hr) && std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        size_t comma = line.rfind(',');
        MTKey key;
        char* end = nullptr;
        long long id =
            comma == std::string::npos ? 0 : std::strtoll(line.c_str() + comma + 1, &end, 10);
        bool ok = line.size() > 2 && line[1] == ',' && comma > 1 && end && *end == '\0' &&
                  id >= INT32_MIN && id <= INT32_MAX &&
                  ParseKey(type_, line.substr(2, comma - 2), key);
        char op = line[0];
        if (!ok || (op != 'I' && op != 'B' && op != 'D')) {
            Report(L"trace line %d is not an operation", number);
            hr = E_FAIL;
        } else {
            hr = op == 'D' ? Delete(key, static_cast<int32_t>(id))
                           : Insert(key, static_cast<int32_t>(id));
        }
    }
    tracing_ = wasTracing;
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace quillet
