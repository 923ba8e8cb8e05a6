#pragma once

// WKSEnvelope: a rectangle of doubles. Maxima below minima make it empty.

#include "foundation/Export.h"

namespace quillet {

struct QUILLET_EXPORT WKSEnvelope {
    double XMin = 0;
    double YMin = 0;
    double XMax = 0;
    double YMax = 0;

    void QueryCoords(double* xmin, double* ymin, double* xmax, double* ymax) const {
        *xmin = XMin;
        *ymin = YMin;
        *xmax = XMax;
        *ymax = YMax;
    }
    bool IsEmpty() const { return XMax < XMin || YMax < YMin; }
    double Width() const { return XMax - XMin; }
    double Height() const { return YMax - YMin; }
    // Whether `other` lies within this rectangle (edges included).
    bool Contains(const WKSEnvelope& other) const {
        return other.XMin >= XMin && other.YMin >= YMin && other.XMax <= XMax &&
               other.YMax <= YMax;
    }
    bool Intersects(const WKSEnvelope& other) const {
        return other.XMin <= XMax && other.XMax >= XMin && other.YMin <= YMax &&
               other.YMax >= YMin;
    }
};

}  // namespace quillet
