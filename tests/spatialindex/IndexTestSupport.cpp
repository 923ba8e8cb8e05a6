#include "IndexTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "foundation/IEnvelope.h"
#include "shape/ShpFile.h"
#include "spatialindex/BinIndexBuilder.h"
#include "spatialindex/ShapeIndexing.h"

namespace quillet::test {

bool BuildIndex(const std::filesystem::path& path, const Layer& layer) {
    BinIndexBuilder builder;
    Envelope extent(layer.extent);
    auto count = static_cast<int32_t>(layer.boxes.size());
    if (!builder.Create(WidePath(path).c_str(), count, &extent)) return false;
    for (size_t i = 0; i < layer.boxes.size(); ++i) {
        Envelope box(layer.boxes[i]);
        if (!builder.AddFeature(static_cast<int32_t>(i + 1), &box)) return false;
    }
    return builder.Finish();
}

std::vector<int32_t> Find(const std::filesystem::path& path, const WKSEnvelope& window) {
    BinIndex index(WidePath(path).c_str());
    return Find(index, window);
}

std::vector<int32_t> Find(BinIndex& index, const WKSEnvelope& window) {
    Envelope query(window);
    RecNumSet found;
    int32_t added = index.Search(&query, &found);
    EXPECT_EQ(added, found.Count()) << "a feature was added twice";
    return found.ToVector();
}

WKSEnvelope UnionOf(const std::vector<WKSEnvelope>& boxes) {
    WKSEnvelope all{0, 0, -1, -1};
    for (const auto& b : boxes) {
        if (b.IsEmpty()) continue;
        all = all.IsEmpty() ? b
                            : WKSEnvelope{std::min(all.XMin, b.XMin), std::min(all.YMin, b.YMin),
                                          std::max(all.XMax, b.XMax), std::max(all.YMax, b.YMax)};
    }
    return all;
}

Layer RandomLayer(std::mt19937_64& random, int count) {
    std::uniform_real_distribution<double> unit(0, 1);
    double x0 = (unit(random) - 0.5) * 1e6;
    double y0 = (unit(random) - 0.5) * 1e6;
    // Degenerate extents too: a line across x or y, or a single point.
    int shape = static_cast<int>(random() % 8);
    double width = shape == 0 ? 0 : std::pow(10.0, unit(random) * 8 - 3);
    double height = shape == 1 ? 0 : std::pow(10.0, unit(random) * 8 - 3);
    if (shape == 2) width = height = 0;

    Layer layer;
    auto at = [&](double fx, double fy) { return std::pair{x0 + fx * width, y0 + fy * height}; };
    for (int i = 0; i < count; ++i) {
        double fx = unit(random);
        double fy = unit(random);
        double size = 0;
        switch (random() % 10) {
            case 0:  // null shape
                layer.boxes.push_back(WKSEnvelope{0, 0, -1, -1});
                continue;
            case 1:  // on an edge of the extent
                (random() % 2 ? fx : fy) = static_cast<double>(random() % 2);
                break;
            case 2:  // huge
                fx = unit(random) * 0.2;
                fy = unit(random) * 0.2;
                size = 0.5 + unit(random) * 0.5;
                break;
            case 3:
            case 4:  // a point
                break;
            case 5:  // a corner
                fx = static_cast<double>(random() % 2);
                fy = static_cast<double>(random() % 2);
                break;
            default:  // tiny
                size = unit(random) * 0.01;
                break;
        }
        auto [xmin, ymin] = at(fx, fy);
        auto [xmax, ymax] = at(std::min(1.0, fx + size * unit(random)),
                               std::min(1.0, fy + size * unit(random)));
        layer.boxes.push_back(WKSEnvelope{xmin, ymin, std::max(xmin, xmax), std::max(ymin, ymax)});
    }
    // The extent is the union, as a shape header holds it, or a little more.
    layer.extent = UnionOf(layer.boxes);
    if (layer.extent.IsEmpty()) layer.extent = WKSEnvelope{x0, y0, x0 + width, y0 + height};
    if (random() % 4 == 0) {
        layer.extent.XMin -= width * 0.1;
        layer.extent.YMax += height * 0.1;
    }
    return layer;
}

WKSEnvelope RandomWindow(std::mt19937_64& random, const WKSEnvelope& extent) {
    std::uniform_real_distribution<double> unit(0, 1);
    double w = extent.Width();
    double h = extent.Height();
    // Degenerate extents still get windows of some size around them.
    double sw = w > 0 ? w : 1;
    double sh = h > 0 ? h : 1;
    double size = std::pow(10.0, -4 + unit(random) * 4.3);
    if (random() % 10 == 0) size = 0;  // a point window
    double x = extent.XMin - 0.1 * sw + unit(random) * 1.2 * sw;
    double y = extent.YMin - 0.1 * sh + unit(random) * 1.2 * sh;
    WKSEnvelope window{x, y, x + size * sw * unit(random) * 2, y + size * sh * unit(random) * 2};
    if (random() % 8 == 0) window.XMin = extent.XMax;  // touching the right edge
    if (random() % 8 == 0) window.YMax = extent.YMin;  // touching the bottom edge
    if (window.XMax < window.XMin) std::swap(window.XMin, window.XMax);
    if (window.YMax < window.YMin) std::swap(window.YMin, window.YMax);
    return window;
}

Layer ReadShapeLayer(const std::filesystem::path& shp) {
    Layer layer;
    ShpFile file(WidePath(shp).c_str());
    if (!file.Open(true, true, false)) return layer;
    const ShpFile::DOUBLERECT& e = file.GetExtent();
    layer.extent = WKSEnvelope{e.xmin, e.ymin, e.xmax, e.ymax};
    for (int32_t n = 0; n < file.GetNumRecords(); ++n) {
        int32_t length = 0;
        const unsigned char* bytes = file.ReadRecord(n, length);
        WKSEnvelope box{0, 0, -1, -1};
        if (!bytes || !ShapeRecordEnvelope(bytes, length, &box)) box = WKSEnvelope{0, 0, -1, -1};
        layer.boxes.push_back(box);
    }
    return layer;
}

}  // namespace quillet::test
