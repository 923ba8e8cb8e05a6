#include "foundation/IEnvelope.h"

namespace quillet {

// The empty rectangle: maxima below minima.
Envelope::Envelope() : Envelope(0, 0, -1, -1) {}

Envelope::Envelope(double xmin, double ymin, double xmax, double ymax) {
    PutCoords(xmin, ymin, xmax, ymax);
}

HRESULT Envelope::QueryCoords(double* xmin, double* ymin, double* xmax, double* ymax) const {
    if (!xmin || !ymin || !xmax || !ymax) return E_POINTER;
    e_.QueryCoords(xmin, ymin, xmax, ymax);
    return S_OK;
}

HRESULT Envelope::PutCoords(double xmin, double ymin, double xmax, double ymax) {
    e_ = WKSEnvelope{xmin, ymin, xmax, ymax};
    return S_OK;
}

HRESULT Envelope::QueryWKSCoords(WKSEnvelope* out) const {
    if (!out) return E_POINTER;
    *out = e_;
    return S_OK;
}

HRESULT Envelope::get_IsEmpty(bool* empty) const {
    if (!empty) return E_POINTER;
    *empty = e_.IsEmpty();
    return S_OK;
}

HRESULT Envelope::get_Width(double* width) const {
    if (!width) return E_POINTER;
    *width = e_.IsEmpty() ? 0.0 : e_.Width();
    return S_OK;
}

HRESULT Envelope::get_Height(double* height) const {
    if (!height) return E_POINTER;
    *height = e_.IsEmpty() ? 0.0 : e_.Height();
    return S_OK;
}

HRESULT Envelope::SetEmpty() {
    *this = Envelope();
    return S_OK;
}

}  // namespace quillet
