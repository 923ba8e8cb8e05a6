#include "attrindex/MTNodeGeometry.h"

namespace quillet {

MTNodeGeometry MTNodeGeometry::Older(int32_t keyWidth) {
    constexpr int32_t words = kOlderNodeSize / 4;
    int32_t keyWords = (keyWidth + 3) / 4;
    int32_t maxKeys = (words - 4) / (keyWords + 1) - 1;
    if (maxKeys % 2 == 0) --maxKeys;
    return {kOlderNodeSize, keyWidth, maxKeys, maxKeys / 2, maxKeys + 1, 16 + 4 * maxKeys};
}

MTNodeGeometry MTNodeGeometry::NextGeneration(int32_t keyWidth) {
    int32_t maxKeys = (kNextGenerationNodeSize - 12) / (keyWidth + 4);
    return {kNextGenerationNodeSize, keyWidth, maxKeys, maxKeys / 2, maxKeys, 12 + 4 * maxKeys};
}

}  // namespace quillet
