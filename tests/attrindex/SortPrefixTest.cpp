// The sort prefixes must never order two elements against their comparison,
// or a bulk load would write its keys out of order.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "attrindex/SortElementCompare.h"

namespace quillet {
namespace {

using Element = std::string;

template <typename T>
Element Make(int32_t id, T key) {
    Element e(4 + sizeof(T), '\0');
    std::memcpy(e.data(), &id, 4);
    std::memcpy(e.data() + 4, &key, sizeof(T));
    return e;
}

template <typename T>
void ExpectPrefixAgreesWithCompare(const std::vector<T>& keys) {
    std::vector<Element> elements;
    for (int32_t id : {-7, 0, 1, 99}) {
        for (T key : keys) elements.push_back(Make(id, key));
    }
    for (const Element& x : elements) {
        for (const Element& y : elements) {
            ExternalSort::SortElement a{static_cast<int32_t>(x.size()),
                                        reinterpret_cast<const unsigned char*>(x.data())};
            ExternalSort::SortElement b{static_cast<int32_t>(y.size()),
                                        reinterpret_cast<const unsigned char*>(y.data())};
            if (SortNumberPrefix<T>(&a) < SortNumberPrefix<T>(&b)) {
                ASSERT_LT(CompareSortNumbers<T>(&a, &b), 0);
            }
        }
    }
}

template <typename T>
std::vector<T> FloatingKeys() {
    using Limits = std::numeric_limits<T>;
    return {-Limits::infinity(), Limits::lowest(), T(-1.5), -Limits::denorm_min(), T(-0.0),
            T(0.0), Limits::denorm_min(), T(2), Limits::max(), Limits::infinity(),
            Limits::quiet_NaN(), -Limits::quiet_NaN()};
}

template <typename T>
std::vector<T> IntegerKeys() {
    using Limits = std::numeric_limits<T>;
    return {Limits::min(), T(-1), T(0), T(1), Limits::max()};
}

TEST(SortPrefix, NeverOrdersAgainstTheComparison) {
    ExpectPrefixAgreesWithCompare(IntegerKeys<int16_t>());
    ExpectPrefixAgreesWithCompare(IntegerKeys<int32_t>());
    ExpectPrefixAgreesWithCompare(IntegerKeys<int64_t>());
    ExpectPrefixAgreesWithCompare(FloatingKeys<float>());
    ExpectPrefixAgreesWithCompare(FloatingKeys<double>());
}

}  // namespace
}  // namespace quillet
