#include "FieldWriter.h"

#include <cmath>
#include <cstdlib>

#include "Common.h"
#include "DbfTable.h"

namespace quillet::tool {

namespace {

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string Trimmed(const std::string& text) {
    size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Plain decimal or exponent text, which every reader of the table parses
// alike; no "inf", "nan" or hexadecimal forms.
bool ParseNumber(const std::string& text, double& value) {
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos)
        return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0' && std::isfinite(value);
}

}  // namespace

FieldWriter::FieldWriter(DBase& table)
    : table_(table), page_(table.GetCodePage().GetCodePageId()) {}

std::string FieldWriter::Store(int field, const std::string& text) {
    if (text.empty()) return table_.SetFieldNull(field) ? "" : StatusText(table_.GetLastStatus());
    String wide = String::FromUtf8(text);
    if (wide.ToUtf8() != text) return "not valid UTF-8";
    char type = table_.GetFieldType(field);
    if (type == DBase::qovaNumeric || type == DBase::qovaFloat)
        return StoreNumber(field, Trimmed(text));
    if (type != DBase::qovaCharacter)
        return table_.SetFieldString(field, wide) ? "" : Refusal(field, text);
    std::string bytes = EncodeText(page_, wide.str());
    if (DecodeText(page_, bytes) != wide.str()) {
        return Quoted(text) + " cannot be represented in code page " +
               Utf8(page_.GetCodePageName().str());
    }
    if (!table_.SetFieldString(field, wide)) return Refusal(field, text);
    // Counted here: the library's converters for some code pages stop at the
    // width without saying that they did.
    cut_ += bytes.size() > static_cast<size_t>(table_.GetFieldWidth(field));
    return "";
}

std::string FieldWriter::StoreNumber(int field, const std::string& text) {
    double value = 0;
    if (!ParseNumber(text, value)) return Quoted(text) + " is not a number";
    auto doesNotFit = [&] {
        return Quoted(text) + " does not fit a field of width " +
               std::to_string(table_.GetFieldWidth(field)) + " with " +
               std::to_string(table_.GetFieldDecimals(field)) + " decimals";
    };
    if (!table_.SetFieldString(field, String::FromUtf8(text))) {
        return table_.GetLastStatus() == DBase::kStatusMalformedText
                   ? doesNotFit()
                   : StatusText(table_.GetLastStatus());
    }
    // The library drops leading digits of a number too wide for the field,
    // and the fraction digits beyond its decimals.
    double lost = std::fabs(table_.GetFieldDouble(field) - value);
    if (lost >= std::pow(10.0, -table_.GetFieldDecimals(field))) return doesNotFit();
    cut_ += lost > 0;
    return "";
}

std::string FieldWriter::Refusal(int field, const std::string& text) const {
    if (table_.GetLastStatus() != DBase::kStatusMalformedText)
        return StatusText(table_.GetLastStatus());
    switch (table_.GetFieldType(field)) {
        case DBase::qovaDate: return Quoted(text) + " is not a date (YYYY-MM-DD)";
        case DBase::qovaLogical: return Quoted(text) + " is not a logical value (T, F, Y, N or ?)";
        default: return StatusText(table_.GetLastStatus());
    }
}

}  // namespace quillet::tool
