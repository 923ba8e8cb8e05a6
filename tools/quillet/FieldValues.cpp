#include "FieldValues.h"

#include <cmath>

#include "Common.h"

namespace quillet::tool {

namespace {

bool IsBlank(const char* raw) {
    for (; *raw; ++raw) {
        if (*raw != ' ') return false;
    }
    return true;
}

// Other writers mark a number they could not store, or none, by filling the
// field with asterisks.
bool IsNoNumber(const char* raw) {
    std::string text(raw);
    size_t first = text.find_first_not_of(' ');
    return first != std::string::npos && text.find_first_not_of("* ", first) == std::string::npos;
}

std::string DateText(const char* raw) {
    std::string text(raw);
    if (text.size() != 8) return text;
    return text.substr(0, 4) + "-" + text.substr(4, 2) + "-" + text.substr(6, 2);
}

}  // namespace

Json FieldJson(DBase& table, int field) {
    const char* raw = table.GetFieldPointer(field);
    if (IsBlank(raw)) return nullptr;
    switch (table.GetFieldType(field)) {
        case DBase::qovaNumeric:
        case DBase::qovaFloat: {
            if (IsNoNumber(raw)) return nullptr;
            double value = table.GetFieldDouble(field);
            if (!std::isfinite(value)) return nullptr;
            if (table.GetFieldDecimals(field) == 0 && value == std::trunc(value) &&
                std::fabs(value) < 9e15) {
                return static_cast<int64_t>(value);
            }
            return value;
        }
        case DBase::qovaDate: {
            std::string text = DateText(raw);
            Variant date;
            return table.GetValue(field, date) && date.vt == VT_NULL ? Json(nullptr) : Json(text);
        }
        case DBase::qovaLogical:
            if (raw[0] == '?') return nullptr;
            return table.GetFieldLogical(field);
        default: return Utf8(table.GetFieldString(field).str());
    }
}

std::string FieldText(DBase& table, int field) {
    Json value = FieldJson(table, field);
    if (value.is_null()) return "";
    if (value.is_string()) return value.get<std::string>();
    if (table.GetFieldType(field) == DBase::qovaNumeric ||
        table.GetFieldType(field) == DBase::qovaFloat) {
        // The number as the table holds it, not as a double prints.
        std::string raw = table.GetFieldPointer(field);
        return raw.substr(raw.find_first_not_of(' '));
    }
    return value.dump();
}

std::string CsvQuote(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace quillet::tool
