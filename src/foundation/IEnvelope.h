#pragma once

// IEnvelope: the platform's rectangle interface, through which callers pass
// rectangles; Envelope is its implementation over a WKSEnvelope.

#include "foundation/Export.h"
#include "foundation/HResult.h"
#include "foundation/WKSEnvelope.h"

namespace quillet {

class QUILLET_EXPORT IEnvelope {
public:
    virtual ~IEnvelope() = default;
    virtual HRESULT QueryCoords(double* xmin, double* ymin, double* xmax, double* ymax) const = 0;
    virtual HRESULT PutCoords(double xmin, double ymin, double xmax, double ymax) = 0;
    virtual HRESULT QueryWKSCoords(WKSEnvelope* out) const = 0;
    virtual HRESULT get_IsEmpty(bool* empty) const = 0;
    virtual HRESULT get_Width(double* width) const = 0;
    virtual HRESULT get_Height(double* height) const = 0;
    virtual HRESULT SetEmpty() = 0;
};

class QUILLET_EXPORT Envelope : public IEnvelope {
public:
    Envelope();  // empty
    Envelope(double xmin, double ymin, double xmax, double ymax);
    explicit Envelope(const WKSEnvelope& e) : e_(e) {}

    HRESULT QueryCoords(double* xmin, double* ymin, double* xmax, double* ymax) const override;
    HRESULT PutCoords(double xmin, double ymin, double xmax, double ymax) override;
    HRESULT QueryWKSCoords(WKSEnvelope* out) const override;
    HRESULT get_IsEmpty(bool* empty) const override;
    HRESULT get_Width(double* width) const override;
    HRESULT get_Height(double* height) const override;
    HRESULT SetEmpty() override;

    const WKSEnvelope& Wks() const { return e_; }

private:
    WKSEnvelope e_;
};

}  // namespace quillet
