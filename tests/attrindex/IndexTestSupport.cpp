#include "IndexTestSupport.h"

#include <vector>

#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet::test {

std::unique_ptr<MTIndex> MakeIndex(const IndexKind& kind) {
    if (kind.ng) return std::make_unique<MTIndexNG>(kind.type, kind.size, kTestCodePage);
    return std::make_unique<MTIndex>(kind.type, kind.size, kTestCodePage);
}

HRESULT OpenIndex(MTIndex& index, const std::wstring& path, uint32_t disposition) {
    return index.Open(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, disposition,
                      FILE_ATTRIBUTE_NORMAL, nullptr);
}

MTKey KeyOf(MTDataType type, int k, std::wstring& text) {
    switch (type) {
        case MTString:
        case MTWString: {
            static const wchar_t kAlphabet[] = L"ab \u00e9";
            text.clear();
            for (unsigned v = static_cast<unsigned>(k) + 1; v > 1; v /= 4) text += kAlphabet[v % 4];
            return MTKey(text.c_str(), false);
        }
        case MTShort: return MTKey(static_cast<int16_t>(k));
        case MTLong: return MTKey(static_cast<int32_t>(k));
        case MTInt64: return MTKey(static_cast<int64_t>(k * 3000000000LL));
        case MTFloat: return MTKey(static_cast<float>(k) / 4);
        default: {
            MTKey key;
            key.SetDate(k + 0.5);
            return key;
        }
    }
}

std::string UnusedBytesFault(const std::wstring& path, const MTIndex& index) {
    std::vector<unsigned char> bytes = ReadBytes(std::filesystem::path(path));
    const MTNodeGeometry& g = index.GetGeometry();
    size_t nodes = bytes.size() / static_cast<size_t>(g.nodeSize);
    for (size_t n = 0; n < nodes; ++n) {
        const unsigned char* block = bytes.data() + n * static_cast<size_t>(g.nodeSize);
        uint32_t raw = index.IsLE() ? DecodeFixed32LE(block + 4) : DecodeFixed32BE(block + 4);
        auto count = static_cast<int32_t>(raw);
        if (count < 0 || count > g.maxKeys) return "node " + std::to_string(n + 1) + ": bad count";
        bool free = count == 0 && DecodeFixed32LE(block + 8) == 0;
        auto zeroFrom = [&](size_t from, size_t to) {
            for (size_t i = from; i < to; ++i) {
                if (block[i] != 0) return false;
            }
            return true;
        };
        size_t slotsEnd = 12 + 4 * static_cast<size_t>(g.idSlots);
        size_t keysUsed =
            static_cast<size_t>(g.keysOffset) + static_cast<size_t>(count) * g.keyWidth;
        bool ok = zeroFrom(12 + 4 * static_cast<size_t>(count), slotsEnd) &&
                  zeroFrom(slotsEnd, static_cast<size_t>(g.keysOffset)) &&
                  zeroFrom(keysUsed, static_cast<size_t>(g.nodeSize)) && (!free || zeroFrom(4, 12));
        if (!ok) return "node " + std::to_string(n + 1) + ": a byte it does not use is not zero";
    }
    return "";
}

std::set<int32_t> IdsOf(IFIDSet& set) {
    std::set<int32_t> ids;
    set.Reset();
    int32_t id = 0;
    while (set.Next(&id) == S_OK) ids.insert(id);
    return ids;
}

}  // namespace quillet::test
