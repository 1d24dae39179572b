// The host variant and its conversions, made as VariantChangeType makes them.
#include "slides/host_variant.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "foundation/char_class.h"
#include "foundation/text.h"

namespace qb::host {
namespace {

const std::u16string kEmptyString;
const HostRef kNullObject;
const VariantArray kEmptyArray;

// VariantChangeType rounds half to even.
bool RoundToInt32(double value, std::int32_t& out) {
    if (!std::isfinite(value)) return false;
    const double rounded = std::nearbyint(value);  // the default mode is to nearest even
    if (rounded < -2147483648.0 || rounded > 2147483647.0) return false;
    out = static_cast<std::int32_t>(rounded);
    return true;
}

bool ParseNumber(const std::u16string& text, double& out) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && IsSpace(text[begin]))
        ++begin;
    while (end > begin && IsSpace(text[end - 1]))
        --end;
    if (begin == end) return false;
    std::string ascii;
    for (std::size_t i = begin; i < end; ++i) {
        const char16_t c = text[i];
        if (c > 0x7F) return false;
        ascii += static_cast<char>(c);
    }
    const char* first = ascii.data();
    if (*first == '+') ++first;
    const auto result = std::from_chars(first, ascii.data() + ascii.size(), out);
    return result.ec == std::errc() && result.ptr == ascii.data() + ascii.size();
}

// The shortest text that reads back as the same value, as the host shows it.
template <typename Number>
std::u16string FormatNumber(Number value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return AsciiToUtf16(std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

}  // namespace

Variant Variant::Null() {
    Variant v;
    v.type_ = VarType::Null;
    return v;
}

Variant Variant::Bool(bool value) {
    Variant v;
    v.type_ = VarType::Bool;
    v.value_ = static_cast<std::int16_t>(value ? -1 : 0);
    return v;
}

Variant Variant::I2(std::int16_t value) {
    Variant v;
    v.type_ = VarType::I2;
    v.value_ = value;
    return v;
}

Variant Variant::I4(std::int32_t value) {
    Variant v;
    v.type_ = VarType::I4;
    v.value_ = value;
    return v;
}

Variant Variant::R4(float value) {
    Variant v;
    v.type_ = VarType::R4;
    v.value_ = value;
    return v;
}

Variant Variant::R8(double value) {
    Variant v;
    v.type_ = VarType::R8;
    v.value_ = value;
    return v;
}

Variant Variant::String(std::u16string value) {
    Variant v;
    v.type_ = VarType::String;
    v.value_ = std::move(value);
    return v;
}

Variant Variant::Object(HostRef value) {
    Variant v;
    v.type_ = VarType::Object;
    v.value_ = std::move(value);
    return v;
}

Variant Variant::Array(std::vector<Variant> elements, std::int32_t lowerBound) {
    VariantArray array;
    array.lowerBounds = {lowerBound};
    array.lengths = {static_cast<std::uint32_t>(elements.size())};
    array.elements = std::move(elements);
    return Array(std::move(array));
}

Variant Variant::Array(VariantArray array) {
    Variant v;
    v.type_ = VarType::Array;
    v.value_ = std::make_shared<VariantArray>(std::move(array));
    return v;
}

std::int16_t Variant::BoolValue() const {
    return type_ == VarType::Bool ? std::get<std::int16_t>(value_) : 0;
}

std::int32_t Variant::I4Value() const {
    return type_ == VarType::I4 ? std::get<std::int32_t>(value_) : 0;
}

const std::u16string& Variant::StringValue() const {
    return type_ == VarType::String ? std::get<std::u16string>(value_) : kEmptyString;
}

const HostRef& Variant::ObjectValue() const {
    return type_ == VarType::Object ? std::get<HostRef>(value_) : kNullObject;
}

const VariantArray& Variant::ArrayValue() const {
    return type_ == VarType::Array ? *std::get<std::shared_ptr<VariantArray>>(value_) : kEmptyArray;
}

bool Variant::ToDouble(double& out) const {
    switch (type_) {
        case VarType::Bool:
        case VarType::I2:
            out = std::get<std::int16_t>(value_);
            return true;
        case VarType::I4:
            out = std::get<std::int32_t>(value_);
            return true;
        case VarType::R4:
            out = std::get<float>(value_);
            return true;
        case VarType::R8:
            out = std::get<double>(value_);
            return true;
        case VarType::String:
            return ParseNumber(std::get<std::u16string>(value_), out);
        case VarType::Empty:
            out = 0;  // VT_EMPTY converts to zero
            return true;
        default:
            return false;
    }
}

bool Variant::ToInt32(std::int32_t& out) const {
    switch (type_) {
        case VarType::Bool:
        case VarType::I2:
            out = std::get<std::int16_t>(value_);
            return true;
        case VarType::I4:
            out = std::get<std::int32_t>(value_);
            return true;
        default: {
            double d = 0;
            return ToDouble(d) && RoundToInt32(d, out);
        }
    }
}

bool Variant::ToString(std::u16string& out) const {
    switch (type_) {
        case VarType::String:
            out = std::get<std::u16string>(value_);
            return true;
        case VarType::Empty:
            out.clear();
            return true;
        case VarType::Bool:
            out = std::get<std::int16_t>(value_) ? u"True" : u"False";
            return true;
        case VarType::I2:
            out = AsciiToUtf16(std::to_string(std::get<std::int16_t>(value_)));
            return true;
        case VarType::I4:
            out = AsciiToUtf16(std::to_string(std::get<std::int32_t>(value_)));
            return true;
        case VarType::R4:
            out = FormatNumber(std::get<float>(value_));
            return true;
        case VarType::R8:
            out = FormatNumber(std::get<double>(value_));
            return true;
        default:
            return false;
    }
}

bool Variant::operator==(const Variant& other) const {
    if (type_ != other.type_) return false;
    if (type_ == VarType::Array)
        return ArrayValue().elements == other.ArrayValue().elements &&
               ArrayValue().lengths == other.ArrayValue().lengths &&
               ArrayValue().lowerBounds == other.ArrayValue().lowerBounds;
    return value_ == other.value_;
}

}  // namespace qb::host
