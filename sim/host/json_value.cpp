// The strict JSON reader and the stable writer. No locale-dependent calls:
// numbers go through from_chars and to_chars, so Windows and Linux read and
// write the same digits.
#include "sim/host/json_value.h"

#include "foundation/text.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <set>
#include <system_error>

namespace qb::sim {

const char* JsonTypeName(JsonType type) {
    switch (type) {
        case JsonType::Null:
            return "null";
        case JsonType::Bool:
            return "a boolean";
        case JsonType::Number:
            return "a number";
        case JsonType::String:
            return "a string";
        case JsonType::Array:
            return "an array";
        case JsonType::Object:
            return "an object";
    }
    return "a value";
}

// --- Values -----------------------------------------------------------------

namespace {

// 2^63: the first double above every int64.
constexpr double kInt64Limit = 9223372036854775808.0;

bool IntegralInRange(double d) {
    return std::isfinite(d) && d == std::trunc(d) && d >= -kInt64Limit && d < kInt64Limit;
}

template <typename T>
std::string ShortestText(T value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string IntegerText(std::int64_t value) {
    return ShortestText(value);
}

}  // namespace

JsonValue JsonValue::Bool(bool value) {
    JsonValue v;
    v.type_ = JsonType::Bool;
    v.bool_ = value;
    return v;
}

JsonValue JsonValue::Number(double value) {
    JsonValue v;
    v.type_ = JsonType::Number;
    v.number_ = value;
    if (IntegralInRange(value)) {
        v.isInteger_ = true;
        v.integer_ = static_cast<std::int64_t>(value);
        v.numberText_ = IntegerText(v.integer_);
    } else if (std::isfinite(value)) {
        v.numberText_ = ShortestText(value);
    }
    return v;
}

JsonValue JsonValue::Integer(std::int64_t value) {
    JsonValue v;
    v.type_ = JsonType::Number;
    v.number_ = static_cast<double>(value);
    v.isInteger_ = true;
    v.integer_ = value;
    v.numberText_ = IntegerText(value);
    return v;
}

JsonValue JsonValue::Float(float value) {
    JsonValue v = Number(static_cast<double>(value));
    if (v.isInteger_ || !std::isfinite(value)) return v;
    // The float's shortest text, unless reading it as a double and narrowing
    // would land on a neighbour (double rounding); the double's text is exact.
    std::string text = ShortestText(value);
    double back = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), back);
    if (parsed.ec == std::errc() && static_cast<float>(back) == value) v.numberText_ = text;
    return v;
}

JsonValue JsonValue::String(std::u16string value) {
    JsonValue v;
    v.type_ = JsonType::String;
    v.string_ = std::move(value);
    return v;
}

JsonValue JsonValue::Array() {
    JsonValue v;
    v.type_ = JsonType::Array;
    return v;
}

JsonValue JsonValue::Object() {
    JsonValue v;
    v.type_ = JsonType::Object;
    return v;
}

JsonValue& JsonValue::Push(JsonValue value) {
    items_.push_back(std::move(value));
    return items_.back();
}

const JsonValue* JsonValue::Find(std::u16string_view key) const {
    for (const JsonMember& m : members_) {
        if (m.key == key) return &m.value;
    }
    return nullptr;
}

JsonValue& JsonValue::Set(std::u16string_view key, JsonValue value) {
    for (JsonMember& m : members_) {
        if (m.key == key) {
            m.value = std::move(value);
            return m.value;
        }
    }
    members_.push_back(JsonMember{std::u16string(key), std::move(value)});
    return members_.back().value;
}

bool JsonValue::operator==(const JsonValue& other) const {
    if (type_ != other.type_) return false;
    switch (type_) {
        case JsonType::Null:
            return true;
        case JsonType::Bool:
            return bool_ == other.bool_;
        case JsonType::Number:
            if (isInteger_ && other.isInteger_) return integer_ == other.integer_;
            return number_ == other.number_;
        case JsonType::String:
            return string_ == other.string_;
        case JsonType::Array:
            return items_ == other.items_;
        case JsonType::Object:
            if (members_.size() != other.members_.size()) return false;
            for (std::size_t i = 0; i < members_.size(); ++i) {
                if (members_[i].key != other.members_[i].key ||
                    members_[i].value != other.members_[i].value) {
                    return false;
                }
            }
            return true;
    }
    return false;
}

std::string JsonError::ToString() const {
    return std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

// --- Reading ----------------------------------------------------------------

namespace {

bool IsContinuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

std::string Hex4(unsigned value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string s = "U+";
    for (int shift = 12; shift >= 0; shift -= 4)
        s += digits[(value >> shift) & 0xF];
    return s;
}

}  // namespace

namespace detail {

class JsonParser {
  public:
    JsonParser(std::string_view text, std::size_t maxDepth) : text_(text), maxDepth_(maxDepth) {}

    std::optional<JsonValue> Run(JsonError* error) {
        if (!CheckUtf8()) return Report(error);
        if (text_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = 3;
        SkipSpace();
        JsonValue value;
        if (!ParseValue(value, 0)) return Report(error);
        SkipSpace();
        if (pos_ < text_.size()) {
            Fail("unexpected " + Describe() + " after the end of the document");
            return Report(error);
        }
        return value;
    }

  private:
    std::optional<JsonValue> Report(JsonError* error) {
        if (error) *error = error_;
        return std::nullopt;
    }

    // Moves to `target`, counting lines and characters on the way.
    void AdvanceTo(std::size_t target) {
        for (; pos_ < target; ++pos_) {
            const auto b = static_cast<unsigned char>(text_[pos_]);
            if (b == '\n') {
                ++line_;
                column_ = 1;
            } else if (!IsContinuation(b)) {
                ++column_;
            }
        }
    }
    void Advance(std::size_t n = 1) { AdvanceTo(pos_ + n); }

    bool Fail(std::string message) {
        if (!failed_) {
            failed_ = true;
            error_.message = std::move(message);
            error_.line = line_;
            error_.column = column_;
            error_.offset = pos_;
        }
        return false;
    }

    bool CheckUtf8() {
        for (std::size_t i = 0; i < text_.size();) {
            if (static_cast<unsigned char>(text_[i]) < 0x80) {
                ++i;
                continue;
            }
            char32_t value = 0;
            const std::size_t n = DecodeUtf8At(text_, i, value);
            if (n == 0) {
                AdvanceTo(i);
                return Fail("invalid UTF-8");
            }
            i += n;
        }
        return true;
    }

    // The character at the current place, for error texts.
    std::string Describe() const {
        if (pos_ >= text_.size()) return "end of input";
        const auto b = static_cast<unsigned char>(text_[pos_]);
        if (b >= 0x21 && b < 0x7F) return std::string("'") + static_cast<char>(b) + "'";
        char32_t value = b;  // an ill-formed byte is shown as it is
        DecodeUtf8At(text_, pos_, value);
        return "character " + Hex4(static_cast<unsigned>(value));
    }

    void SkipSpace() {
        std::size_t end = pos_;
        while (end < text_.size() && (text_[end] == ' ' || text_[end] == '\t' ||
                                      text_[end] == '\n' || text_[end] == '\r')) {
            ++end;
        }
        AdvanceTo(end);
    }

    bool Peek(char c) const { return pos_ < text_.size() && text_[pos_] == c; }

    bool ParseValue(JsonValue& out, std::size_t depth) {
        const std::size_t line = line_, column = column_;
        bool ok;
        if (pos_ >= text_.size()) return Fail("unexpected end of input, expected a value");
        const char c = text_[pos_];
        if (c == '{') {
            ok = ParseObject(out, depth + 1);
        } else if (c == '[') {
            ok = ParseArray(out, depth + 1);
        } else if (c == '"') {
            std::u16string s;
            ok = ParseString(s);
            if (ok) out = JsonValue::String(std::move(s));
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            ok = ParseNumber(out);
        } else if (text_.compare(pos_, 4, "true") == 0) {
            Advance(4);
            out = JsonValue::Bool(true);
            ok = true;
        } else if (text_.compare(pos_, 5, "false") == 0) {
            Advance(5);
            out = JsonValue::Bool(false);
            ok = true;
        } else if (text_.compare(pos_, 4, "null") == 0) {
            Advance(4);
            out = JsonValue();
            ok = true;
        } else {
            return Fail("unexpected " + Describe() + ", expected a value");
        }
        if (ok) out.SetPosition(line, column);
        return ok;
    }

    bool EnterContainer(std::size_t depth) {
        if (depth > maxDepth_) {
            return Fail("nesting deeper than " + std::to_string(maxDepth_) + " levels");
        }
        Advance();
        SkipSpace();
        return true;
    }

    bool ParseArray(JsonValue& out, std::size_t depth) {
        if (!EnterContainer(depth)) return false;
        out = JsonValue::Array();
        if (Peek(']')) {
            Advance();
            return true;
        }
        for (;;) {
            JsonValue item;
            if (!ParseValue(item, depth)) return false;
            out.Push(std::move(item));
            SkipSpace();
            if (Peek(',')) {
                Advance();
                SkipSpace();
                continue;
            }
            if (Peek(']')) {
                Advance();
                return true;
            }
            return Fail("unexpected " + Describe() + " in an array, expected ',' or ']'");
        }
    }

    bool ParseObject(JsonValue& out, std::size_t depth) {
        if (!EnterContainer(depth)) return false;
        out = JsonValue::Object();
        if (Peek('}')) {
            Advance();
            return true;
        }
        std::set<std::u16string> seen;
        for (;;) {
            if (!Peek('"')) {
                return Fail("unexpected " + Describe() + " in an object, expected a key");
            }
            const std::size_t line = line_, column = column_, offset = pos_;
            std::u16string key;
            if (!ParseString(key)) return false;
            if (!seen.insert(key).second) {
                // Point at the repeated key, not past it.
                failed_ = true;
                error_ =
                    JsonError{"duplicate key \"" +
                                  std::string(text_.substr(offset + 1, pos_ - offset - 2)) + "\"",
                              line, column, offset};
                return false;
            }
            SkipSpace();
            if (!Peek(':')) return Fail("unexpected " + Describe() + " after a key, expected ':'");
            Advance();
            SkipSpace();
            JsonValue value;
            if (!ParseValue(value, depth)) return false;
            out.members_.push_back(JsonMember{std::move(key), std::move(value), line, column});
            SkipSpace();
            if (Peek(',')) {
                Advance();
                SkipSpace();
                continue;
            }
            if (Peek('}')) {
                Advance();
                return true;
            }
            return Fail("unexpected " + Describe() + " in an object, expected ',' or '}'");
        }
    }

    bool ParseHex4(unsigned& value) {
        value = 0;
        for (int i = 0; i < 4; ++i) {
            if (pos_ >= text_.size()) return Fail("unexpected end of input in a \\u escape");
            const char c = text_[pos_];
            unsigned digit;
            if (c >= '0' && c <= '9') {
                digit = static_cast<unsigned>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                digit = static_cast<unsigned>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                digit = static_cast<unsigned>(c - 'A' + 10);
            } else {
                return Fail("unexpected " + Describe() + " in a \\u escape, expected a hex digit");
            }
            value = value * 16 + digit;
            Advance();
        }
        return true;
    }

    bool ParseString(std::u16string& out) {
        Advance();  // the opening quote
        for (;;) {
            if (pos_ >= text_.size()) return Fail("unexpected end of input in a string");
            const auto b = static_cast<unsigned char>(text_[pos_]);
            if (b == '"') {
                Advance();
                return true;
            }
            if (b < 0x20) {
                return Fail("control character " + Hex4(b) + " in a string; write it as an escape");
            }
            if (b != '\\') {
                char32_t value = 0;
                const std::size_t n = DecodeUtf8At(text_, pos_, value);  // valid: checked up front
                AppendUtf16(out, value);
                Advance(n);
                continue;
            }
            const std::size_t escapeLine = line_, escapeColumn = column_, escapeOffset = pos_;
            Advance();
            if (pos_ >= text_.size()) return Fail("unexpected end of input in a string");
            const char e = text_[pos_];
            static const char escapes[] = "\"\\/bfnrt";
            static const char16_t meanings[] = u"\"\\/\b\f\n\r\t";
            const char* simple = e != 0 ? std::strchr(escapes, e) : nullptr;
            if (simple) {
                out.push_back(meanings[simple - escapes]);
                Advance();
                continue;
            }
            if (e != 'u') return Fail("unknown escape \\" + std::string(1, e) + " in a string");
            Advance();
            unsigned unit = 0;
            if (!ParseHex4(unit)) return false;
            const auto loneSurrogate = [&] {
                failed_ = true;
                error_ = JsonError{"lone surrogate \\u" + Hex4(unit).substr(2) +
                                       " in a string; a surrogate pair needs both halves",
                                   escapeLine, escapeColumn, escapeOffset};
                return false;
            };
            if (unit >= 0xDC00 && unit <= 0xDFFF) return loneSurrogate();
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                if (text_.compare(pos_, 2, "\\u") != 0) return loneSurrogate();
                Advance(2);
                unsigned low = 0;
                if (!ParseHex4(low)) return false;
                if (low < 0xDC00 || low > 0xDFFF) return loneSurrogate();
                out.push_back(static_cast<char16_t>(unit));
                out.push_back(static_cast<char16_t>(low));
                continue;
            }
            out.push_back(static_cast<char16_t>(unit));
        }
    }

    bool Digits(std::size_t& end) const {
        const std::size_t start = end;
        while (end < text_.size() && text_[end] >= '0' && text_[end] <= '9')
            ++end;
        return end > start;
    }

    bool ParseNumber(JsonValue& out) {
        std::size_t end = pos_;
        if (text_[end] == '-') ++end;
        const std::size_t intStart = end;
        if (!Digits(end)) {
            Advance(end - pos_);
            return Fail("unexpected " + Describe() + " in a number, expected a digit");
        }
        if (text_[intStart] == '0' && end - intStart > 1) {
            Advance(intStart + 1 - pos_);
            return Fail("a number can't have leading zeros");
        }
        if (end < text_.size() && text_[end] == '.') {
            ++end;
            if (!Digits(end)) {
                Advance(end - pos_);
                return Fail("unexpected " + Describe() + " in a number, expected a digit");
            }
        }
        if (end < text_.size() && (text_[end] == 'e' || text_[end] == 'E')) {
            ++end;
            if (end < text_.size() && (text_[end] == '+' || text_[end] == '-')) ++end;
            if (!Digits(end)) {
                Advance(end - pos_);
                return Fail("unexpected " + Describe() + " in a number, expected a digit");
            }
        }
        const char* first = text_.data() + pos_;
        const char* last = text_.data() + end;
        double value = 0;
        const auto parsed = std::from_chars(first, last, value);
        if (parsed.ec == std::errc::result_out_of_range) {
            if (!Tiny(std::string_view(first, static_cast<std::size_t>(last - first)))) {
                return Fail("number out of range");
            }
            value = *first == '-' ? -0.0 : 0.0;  // below the smallest double: zero
        } else if (parsed.ec != std::errc() || parsed.ptr != last) {
            return Fail("unreadable number");
        }
        // Integral or not by the digits as written, and exact beyond a
        // double's 53 bits; the double may have rounded either way.
        std::int64_t exact = 0;
        if (ExactInteger(std::string_view(first, static_cast<std::size_t>(last - first)), exact)) {
            out = JsonValue::Integer(exact);
            out.number_ = value;
        } else {
            out = JsonValue::Number(value);
            out.isInteger_ = false;
            out.integer_ = 0;
            out.numberText_ = ShortestText(value);
        }
        Advance(end - pos_);
        return true;
    }

    // The value of a number's text when it is a whole number in int64 range.
    static bool ExactInteger(std::string_view number, std::int64_t& out) {
        const bool negative = number[0] == '-';
        std::string digits = negative ? "-" : "";
        long long exponent = 0;
        std::size_t i = negative ? 1 : 0;
        bool afterPoint = false;
        for (; i < number.size() && number[i] != 'e' && number[i] != 'E'; ++i) {
            if (number[i] == '.') {
                afterPoint = true;
                continue;
            }
            if (digits.size() > (negative ? 1u : 0u) || number[i] != '0') digits += number[i];
            if (afterPoint) --exponent;
        }
        if (i < number.size()) {
            ++i;
            const bool negativeExponent = number[i] == '-';
            if (number[i] == '+' || number[i] == '-') ++i;
            long long e = 0;
            for (; i < number.size() && e < 100000; ++i)
                e = e * 10 + (number[i] - '0');
            exponent += negativeExponent ? -e : e;
        }
        const std::size_t sign = negative ? 1 : 0;
        if (digits.size() == sign) {  // all zeros
            out = 0;
            return true;
        }
        while (exponent < 0 && digits.back() == '0') {
            digits.pop_back();
            ++exponent;
        }
        if (exponent < 0 || static_cast<long long>(digits.size() - sign) + exponent > 19) {
            return false;
        }
        digits.append(static_cast<std::size_t>(exponent), '0');
        const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), out);
        return parsed.ec == std::errc() && parsed.ptr == digits.data() + digits.size();
    }

    // Whether an out-of-range number is too small rather than too large:
    // its first significant digit stands far right of the point.
    static bool Tiny(std::string_view number) {
        std::size_t i = number[0] == '-' ? 1 : 0;
        long long magnitude = 0;  // the power of ten of the first significant digit, roughly
        bool seenDigit = false, afterPoint = false;
        long long leading = 0;
        for (; i < number.size() && number[i] != 'e' && number[i] != 'E'; ++i) {
            if (number[i] == '.') {
                afterPoint = true;
            } else if (number[i] != '0' || seenDigit) {
                if (!seenDigit) magnitude = afterPoint ? -(leading + 1) : 0;
                if (!afterPoint && seenDigit) ++magnitude;
                seenDigit = true;
            } else if (afterPoint) {
                ++leading;
            }
        }
        if (!seenDigit) return true;
        long long exponent = 0;
        if (i < number.size()) {
            ++i;
            const bool negative = number[i] == '-';
            if (number[i] == '+' || number[i] == '-') ++i;
            for (; i < number.size() && exponent < 100000; ++i)
                exponent = exponent * 10 + (number[i] - '0');
            if (negative) exponent = -exponent;
        }
        return magnitude + exponent < 0;
    }

    std::string_view text_;
    std::size_t maxDepth_;
    std::size_t pos_ = 0;
    std::size_t line_ = 1;
    std::size_t column_ = 1;
    bool failed_ = false;
    JsonError error_;
};

}  // namespace detail

std::optional<JsonValue> ParseJson(std::string_view utf8, JsonError* error, std::size_t maxDepth) {
    return detail::JsonParser(utf8, maxDepth).Run(error);
}

// --- Writing ----------------------------------------------------------------

namespace {

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendEscape(std::string& out, unsigned unit) {
    static const char digits[] = "0123456789abcdef";
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        out += digits[(unit >> shift) & 0xF];
}

void AppendQuoted(std::string& out, std::u16string_view s) {
    out += '"';
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char16_t c = s[i];
        switch (c) {
            case u'"':
                out += "\\\"";
                continue;
            case u'\\':
                out += "\\\\";
                continue;
            case u'\b':
                out += "\\b";
                continue;
            case u'\f':
                out += "\\f";
                continue;
            case u'\n':
                out += "\\n";
                continue;
            case u'\r':
                out += "\\r";
                continue;
            case u'\t':
                out += "\\t";
                continue;
            default:
                break;
        }
        if (c < 0x20) {
            AppendEscape(out, c);
        } else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
                   s[i + 1] <= 0xDFFF) {
            AppendUtf8(out, 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) +
                                (static_cast<char32_t>(s[i + 1]) - 0xDC00));
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            AppendEscape(out, c);  // UTF-8 can't carry it
        } else {
            AppendUtf8(out, c);
        }
    }
    out += '"';
}

void AppendScalar(std::string& out, const JsonValue& v) {
    switch (v.Type()) {
        case JsonType::Null:
            out += "null";
            break;
        case JsonType::Bool:
            out += v.BoolValue() ? "true" : "false";
            break;
        case JsonType::Number:
            out += v.NumberText().empty() ? "null" : v.NumberText();
            break;
        case JsonType::String:
            AppendQuoted(out, v.StringValue());
            break;
        case JsonType::Array:
            out += "[]";
            break;
        case JsonType::Object:
            out += "{}";
            break;
    }
}

bool IsLeaf(const JsonValue& v) {
    return (!v.IsArray() && !v.IsObject()) || (v.IsArray() && v.Items().empty()) ||
           (v.IsObject() && v.Members().empty());
}

class Writer {
  public:
    explicit Writer(const JsonWriteOptions& options) : options_(options) {}

    std::string Run(const JsonValue& v) {
        Write(v, 0, 0);
        out_ += '\n';
        return std::move(out_);
    }

  private:
    // `lineStart` is where the current line began in out_, to measure it.
    void Write(const JsonValue& v, std::size_t indent, std::size_t lineStart) {
        if (IsLeaf(v)) {
            AppendScalar(out_, v);
            return;
        }
        if (TryInline(v, lineStart)) return;
        const bool array = v.IsArray();
        out_ += array ? '[' : '{';
        const std::size_t count = array ? v.Items().size() : v.Members().size();
        for (std::size_t i = 0; i < count; ++i) {
            out_ += '\n';
            const std::size_t start = out_.size();
            out_.append(indent + 2, ' ');
            if (array) {
                Write(v.Items()[i], indent + 2, start);
            } else {
                AppendQuoted(out_, v.Members()[i].key);
                out_ += ": ";
                Write(v.Members()[i].value, indent + 2, start);
            }
            if (i + 1 < count) out_ += ',';
        }
        out_ += '\n';
        out_.append(indent, ' ');
        out_ += array ? ']' : '}';
    }

    bool TryInline(const JsonValue& v, std::size_t lineStart) {
        if (options_.inlineWidth == 0) return false;
        std::string line;
        if (v.IsArray()) {
            line += '[';
            for (std::size_t i = 0; i < v.Items().size(); ++i) {
                if (!IsLeaf(v.Items()[i])) return false;
                if (i) line += ", ";
                AppendScalar(line, v.Items()[i]);
            }
            line += ']';
        } else {
            line += '{';
            for (std::size_t i = 0; i < v.Members().size(); ++i) {
                const JsonMember& m = v.Members()[i];
                if (!IsLeaf(m.value)) return false;
                if (i) line += ", ";
                AppendQuoted(line, m.key);
                line += ": ";
                AppendScalar(line, m.value);
            }
            line += '}';
        }
        // A trailing comma may follow; count it so that the limit holds.
        if (out_.size() - lineStart + line.size() + 1 > options_.inlineWidth) return false;
        out_ += line;
        return true;
    }

    const JsonWriteOptions& options_;
    std::string out_;
};

}  // namespace

std::string WriteJson(const JsonValue& value, const JsonWriteOptions& options) {
    return Writer(options).Run(value);
}

}  // namespace qb::sim
