// The life of an .atx index object: the key descriptor, creation (bulk or
// through the legacy interface), opening, closing and single updates.

#include "attrindex/MTreeIndex.h"

#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/MultiByteText.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

bool SameLayout(const AtxKeyLayout& a, const AtxKeyLayout& b) {
    return a.IsValid() && b.IsValid() && a.keyClass == b.keyClass && a.width == b.width &&
           a.stride == b.stride;
}

std::string PathText(const FileSystemPath& path) {
    return path.GetPath().ToUtf8();
}

}  // namespace

MTreeIndex::MTreeIndex() = default;

MTreeIndex::~MTreeIndex() {
    Close();
}

bool MTreeIndex::IndexExists(const FileSystemPath& path) {
    return path.Exists();
}

bool MTreeIndex::DeleteIndex(const FileSystemPath& path) {
    return DeleteFileW(path) != 0;
}

HRESULT MTreeIndex::SetupFieldProperties(IField* field) {
    VARTYPE vt = VT_EMPTY;
    int32_t length = 0;
    int32_t precision = 0;
    int32_t scale = 0;
    if (!field || FAILED(field->get_VarType(&vt)) || FAILED(field->get_Length(&length)) ||
        FAILED(field->get_Precision(&precision)) || FAILED(field->get_Scale(&scale))) {
        return E_FAIL;
    }
    bool digits = precision >= 1 && precision <= 16;
    auto set = [this](int32_t width, int32_t kind, int32_t decimals) {
        key_[0] = 0;
        key_[1] = width;
        key_[2] = kind;
        key_[3] = decimals;
        return S_OK;
    };
    switch (vt) {
        case VT_DATE: return set(8, kKindDate, 0);
        case VT_BSTR: return set(length, kKindText, -1);
        case VT_R4:
            return digits ? set(precision, kKindDecimalDigits, scale) : set(4, kKindFloat, 3);
        case VT_R8:
            return digits ? set(precision, kKindDecimalDigits, scale) : set(8, kKindFloat, 5);
        case VT_I2:
            return digits ? set(precision, kKindIntegerDigits, -1) : set(2, kKindInteger, -1);
        case VT_I4:
            return digits ? set(precision, kKindIntegerDigits, -1) : set(4, kKindInteger, -1);
        default: return E_FAIL;
    }
}

// The bulk builder lays keys out by the field's type, the legacy interface
// by the descriptor; an index is made only where the two agree.
HRESULT MTreeIndex::CheckLayout(IField* field) const {
    AtxKeyLayout built = MTreeIndexBuilder::LayoutOf(field, MTreeIndexBuilder::kTypeMap0);
    return SameLayout(built, LegacyIndex::LayoutOf(key_)) ? S_OK : E_FAIL;
}

HRESULT MTreeIndex::Create(const FileSystemPath& path, IField* field, bool bulk) {
    Close();
    if (FAILED(SetupFieldProperties(field)) || FAILED(CheckLayout(field))) return E_FAIL;
    if (bulk) {
        builder_ = std::make_unique<MTreeIndexBuilder>();
        if (!builder_->Init(path, field, MTreeIndexBuilder::kTypeMap0)) {
            builder_.reset();
            return E_FAIL;
        }
        mode_ = kModeBulk;
        return S_OK;
    }
    handle_ = atx_create(key_, PathText(path).c_str());
    if (handle_ < 1) return E_FAIL;
    mode_ = kModeUpdate;
    return S_OK;
}

HRESULT MTreeIndex::Open(const FileSystemPath& path, IField* field, Mode mode) {
    Close();
    if (mode == kModeBulk) return E_FAIL;
    if (FAILED(SetupFieldProperties(field)) || FAILED(CheckLayout(field))) return E_FAIL;
    handle_ = atx_open(key_, PathText(path).c_str(), mode);
    if (handle_ < 1) return E_FAIL;
    mode_ = mode;
    return S_OK;
}

HRESULT MTreeIndex::Close() {
    if (handle_ > 0) atx_close(handle_);
    handle_ = -1;
    if (mode_ != kModeBulk || !builder_) return S_OK;
    bool written = builder_->Write();
    builder_.reset();
    mode_ = kModeRead;
    return written ? S_OK : E_FAIL;
}

HRESULT MTreeIndex::ExtractKeyValue(const VARIANT& value, double& number, std::string& text) const {
    bool textIndex = key_[2] == kKindText;
    switch (value.vt) {
        case VT_I2: number = value.iVal; break;
        case VT_I4: number = value.lVal; break;
        case VT_R4: number = value.fltVal; break;
        case VT_R8: number = value.dblVal; break;
        case VT_DATE: number = value.date; break;
        case VT_BSTR:
            if (!textIndex) return E_FAIL;
            text = ToMultiByte(value.bstrVal);
            return S_OK;
        default: return E_FAIL;
    }
    return textIndex ? E_FAIL : S_OK;
}

HRESULT MTreeIndex::InsertEntry(const VARIANT& value, int32_t id) {
    if (mode_ == kModeBulk) return builder_->InsertEntry(id, value) ? S_OK : E_FAIL;
    double number = 0;
    std::string text;
    if (handle_ < 1 || mode_ != kModeUpdate || FAILED(ExtractKeyValue(value, number, text))) {
        return E_FAIL;
    }
    return atx_add(handle_, number, text.c_str(), id) == 1 ? S_OK : E_FAIL;
}

HRESULT MTreeIndex::DeleteEntry(const VARIANT& value, int32_t id) {
    double number = 0;
    std::string text;
    if (handle_ < 1 || mode_ != kModeUpdate || FAILED(ExtractKeyValue(value, number, text))) {
        return E_FAIL;
    }
    return atx_delete(handle_, number, text.c_str(), id) == 1 ? S_OK : E_FAIL;
}

}  // namespace quillet
