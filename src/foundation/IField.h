#pragma once

// IField: what an index needs to know of a table column: its type code, its
// length, precision and scale, and the variant type its values take. Field is
// the plain implementation; its owner keeps it alive while others use it.

#include <cstdint>

#include "foundation/Export.h"
#include "foundation/Guid.h"
#include "foundation/HResult.h"
#include "foundation/String.h"
#include "foundation/Variant.h"

namespace quillet {

// The platform's field types; the indexes choose their key layout by these
// codes.
enum qovaFieldType : int32_t {
    qovaFieldTypeSmallInteger = 0,
    qovaFieldTypeInteger = 1,
    qovaFieldTypeSingle = 2,
    qovaFieldTypeDouble = 3,
    qovaFieldTypeString = 4,
    qovaFieldTypeDate = 5,
    qovaFieldTypeOID = 6,
    qovaFieldTypeGeometry = 7,
    qovaFieldTypeBlob = 8,
    qovaFieldTypeRaster = 9,
    qovaFieldTypeGUID = 10,
    qovaFieldTypeGlobalID = 11,
    qovaFieldTypeXML = 12,
};

// The interface's id, named in the diagnostics of callers that cannot reach it.
QUILLET_EXPORT extern const IID IID_IField;

class QUILLET_EXPORT IField {
public:
    virtual ~IField() = default;
    // The name as a new BSTR that the caller frees.
    virtual HRESULT get_Name(BSTR* name) const = 0;
    virtual HRESULT get_Type(qovaFieldType* type) const = 0;
    // Characters of a text field, bytes of any other.
    virtual HRESULT get_Length(int32_t* length) const = 0;
    // Total digits of a number, 0 when not fixed.
    virtual HRESULT get_Precision(int32_t* precision) const = 0;
    // Digits after the decimal point.
    virtual HRESULT get_Scale(int32_t* scale) const = 0;
    virtual HRESULT get_VarType(VARTYPE* vt) const = 0;
};

class QUILLET_EXPORT Field : public IField {
public:
    // The variant type follows from the field type (VarTypeOf).
    Field(const String& name, qovaFieldType type, int32_t length, int32_t precision = 0,
          int32_t scale = 0);

    HRESULT get_Name(BSTR* name) const override;
    HRESULT get_Type(qovaFieldType* type) const override;
    HRESULT get_Length(int32_t* length) const override;
    HRESULT get_Precision(int32_t* precision) const override;
    HRESULT get_Scale(int32_t* scale) const override;
    HRESULT get_VarType(VARTYPE* vt) const override;

    // The variant type that values of a field type take: VT_I2, VT_I4, VT_R4,
    // VT_R8, VT_BSTR, VT_DATE, VT_I4 for object ids, VT_BSTR for GUIDs and XML,
    // VT_EMPTY for geometry, blobs and rasters.
    static VARTYPE VarTypeOf(qovaFieldType type);

private:
    String name_;
    qovaFieldType type_;
    int32_t length_;
    int32_t precision_;
    int32_t scale_;
};

}  // namespace quillet
