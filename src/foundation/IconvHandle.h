#pragma once

// One iconv descriptor and the calls the codecs make on it. Internal to the
// library.

#include <iconv.h>

#include <cstddef>

namespace quillet::codec {

// iconv_open's failure value.
inline const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);

// One iconv descriptor, closed with the object.
class IconvHandle {
public:
    IconvHandle(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
    ~IconvHandle() {
        if (cd_ != kNoDescriptor) iconv_close(cd_);
    }
    IconvHandle(const IconvHandle&) = delete;
    IconvHandle& operator=(const IconvHandle&) = delete;

    bool ok() const { return cd_ != kNoDescriptor; }
    void ResetState() const { iconv(cd_, nullptr, nullptr, nullptr, nullptr); }
    // Converts as much as fits; returns iconv's result.
    size_t Convert(const char*& in, size_t& inLeft, char*& out, size_t& outLeft) const {
        return iconv(cd_, const_cast<char**>(&in), &inLeft, &out, &outLeft);
    }
    // Writes what returns the output to its initial shift state.
    size_t Unshift(char*& out, size_t& outLeft) const {
        return iconv(cd_, nullptr, nullptr, &out, &outLeft);
    }

private:
    iconv_t cd_;
};

}  // namespace quillet::codec
