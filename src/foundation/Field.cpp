#include "foundation/IField.h"

namespace quillet {

const IID IID_IField = {
    0x3A4C1E27u, 0x9B0Du, 0x4E61u, {0xA2, 0x57, 0x6C, 0x1F, 0x80, 0x3D, 0xE9, 0x14}};

Field::Field(const String& name, qovaFieldType type, int32_t length, int32_t precision,
             int32_t scale)
    : name_(name), type_(type), length_(length), precision_(precision), scale_(scale) {}

HRESULT Field::get_Name(BSTR* name) const {
    if (!name) return E_POINTER;
    *name = name_.MakeBSTR();
    return *name ? S_OK : E_OUTOFMEMORY;
}

HRESULT Field::get_Type(qovaFieldType* type) const {
    if (!type) return E_POINTER;
    *type = type_;
    return S_OK;
}

HRESULT Field::get_Length(int32_t* length) const {
    if (!length) return E_POINTER;
    *length = length_;
    return S_OK;
}

HRESULT Field::get_Precision(int32_t* precision) const {
    if (!precision) return E_POINTER;
    *precision = precision_;
    return S_OK;
}

HRESULT Field::get_Scale(int32_t* scale) const {
    if (!scale) return E_POINTER;
    *scale = scale_;
    return S_OK;
}

HRESULT Field::get_VarType(VARTYPE* vt) const {
    if (!vt) return E_POINTER;
    *vt = VarTypeOf(type_);
    return S_OK;
}

VARTYPE Field::VarTypeOf(qovaFieldType type) {
    switch (type) {
        case qovaFieldTypeSmallInteger:
            return VT_I2;
        case qovaFieldTypeInteger:
        case qovaFieldTypeOID:
            return VT_I4;
        case qovaFieldTypeSingle:
            return VT_R4;
        case qovaFieldTypeDouble:
            return VT_R8;
        case qovaFieldTypeDate:
            return VT_DATE;
        case qovaFieldTypeString:
        case qovaFieldTypeGUID:
        case qovaFieldTypeGlobalID:
        case qovaFieldTypeXML:
            return VT_BSTR;
        default:
            return VT_EMPTY;
    }
}

}  // namespace quillet
