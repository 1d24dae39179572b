// A small strict JSON document model for the stand-ins: deck files and other
// test inputs that people write by hand. Parsing follows RFC 8259 and rejects
// what it leaves open (duplicate keys, lone surrogate escapes, invalid UTF-8),
// so that a typo fails loudly instead of loading something else. Strings are
// UTF-16, the host's text. The writer gives the same bytes for the same
// value: members in insertion order, two-space indentation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qb::sim {

enum class JsonType { Null, Bool, Number, String, Array, Object };

// The English word for a type, for error texts: "an object", "a string".
const char* JsonTypeName(JsonType type);

struct JsonMember;
namespace detail {
class JsonParser;
}

class JsonValue {
  public:
    JsonValue() = default;  // null
    static JsonValue Bool(bool value);
    static JsonValue Number(double value);
    static JsonValue Integer(std::int64_t value);
    // Written with the fewest digits that read back as the same float, so a
    // float model value shows as 7.2 rather than 7.199999809265137.
    static JsonValue Float(float value);
    static JsonValue String(std::u16string value);
    static JsonValue Array();
    static JsonValue Object();

    JsonType Type() const { return type_; }
    bool IsNull() const { return type_ == JsonType::Null; }
    bool IsBool() const { return type_ == JsonType::Bool; }
    bool IsNumber() const { return type_ == JsonType::Number; }
    bool IsString() const { return type_ == JsonType::String; }
    bool IsArray() const { return type_ == JsonType::Array; }
    bool IsObject() const { return type_ == JsonType::Object; }

    bool BoolValue() const { return bool_; }
    double NumberValue() const { return number_; }
    // A number with an integral value that an int64 holds exactly (from the
    // digits as written, not from the double).
    bool IsInteger() const { return isInteger_; }
    std::int64_t IntegerValue() const { return integer_; }
    // The number as the writer puts it.
    const std::string& NumberText() const { return numberText_; }
    const std::u16string& StringValue() const { return string_; }

    // Arrays.
    const std::vector<JsonValue>& Items() const { return items_; }
    JsonValue& Push(JsonValue value);

    // Objects, in insertion order.
    const std::vector<JsonMember>& Members() const { return members_; }
    const JsonValue* Find(std::u16string_view key) const;
    // Adds a member at the end, or replaces the value of an existing one in
    // its place.
    JsonValue& Set(std::u16string_view key, JsonValue value);

    // Where a parsed value starts, one-based; 0 for values built in code.
    std::size_t Line() const { return line_; }
    std::size_t Column() const { return column_; }
    void SetPosition(std::size_t line, std::size_t column) {
        line_ = line;
        column_ = column;
    }

    // Same type and contents; numbers compare by value, positions are ignored.
    bool operator==(const JsonValue& other) const;
    bool operator!=(const JsonValue& other) const { return !(*this == other); }

  private:
    friend class detail::JsonParser;

    JsonType type_ = JsonType::Null;
    bool bool_ = false;
    bool isInteger_ = false;
    double number_ = 0;
    std::int64_t integer_ = 0;
    std::string numberText_;
    std::u16string string_;
    std::vector<JsonValue> items_;
    std::vector<JsonMember> members_;
    std::size_t line_ = 0;
    std::size_t column_ = 0;
};

struct JsonMember {
    std::u16string key;
    JsonValue value;
    std::size_t line = 0;  // where a parsed key starts
    std::size_t column = 0;
};

// Where and why parsing stopped. Lines and columns are one-based; columns
// count characters (code points), not bytes.
struct JsonError {
    std::string message;
    std::size_t line = 0;
    std::size_t column = 0;
    std::size_t offset = 0;  // in bytes

    // "line:column: message"
    std::string ToString() const;
};

inline constexpr std::size_t kJsonMaxDepth = 200;

// One JSON text, whitespace around it allowed, a leading UTF-8 byte order
// mark skipped. Nothing on failure, with `error` (when given) filled in.
std::optional<JsonValue> ParseJson(std::string_view utf8, JsonError* error = nullptr,
                                   std::size_t maxDepth = kJsonMaxDepth);

struct JsonWriteOptions {
    // An array or object of scalars only goes on one line when that line is
    // at most this long; 0 puts every member on a line of its own.
    std::size_t inlineWidth = 100;
};

// UTF-8 text ending in a newline. Non-ASCII text is written as it is; control
// characters and lone surrogates as \u escapes; non-finite numbers as null.
std::string WriteJson(const JsonValue& value, const JsonWriteOptions& options = {});

}  // namespace qb::sim
