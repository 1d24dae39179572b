// The small variant that carries what the host's object model takes and
// returns: empty, null, booleans as -1/0, 16- and 32-bit integers, 32- and
// 64-bit floats, strings, host objects, and arrays (category names, x values).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace qb::host {

class HostObject;
// A counted reference to a host object; the object lives while one is held.
using HostRef = std::shared_ptr<HostObject>;

enum class VarType : std::uint8_t { Empty, Null, Bool, I2, I4, R4, R8, String, Object, Array };

class Variant;

// A SAFEARRAY's content: elements in storage order (the first dimension
// varies fastest), with each dimension's lower bound and length.
struct VariantArray {
    std::vector<std::int32_t> lowerBounds;
    std::vector<std::uint32_t> lengths;
    std::vector<Variant> elements;
};

class Variant {
  public:
    Variant() = default;
    static Variant Null();
    // Stored as the host stores it: -1 for true, 0 for false.
    static Variant Bool(bool value);
    static Variant I2(std::int16_t value);
    static Variant I4(std::int32_t value);
    static Variant R4(float value);
    static Variant R8(double value);
    static Variant String(std::u16string value);
    static Variant Object(HostRef value);
    // A one-dimensional array with the given lower bound.
    static Variant Array(std::vector<Variant> elements, std::int32_t lowerBound = 0);
    static Variant Array(VariantArray array);

    VarType Type() const { return type_; }
    bool IsEmpty() const { return type_ == VarType::Empty; }

    // Exact reads: the value when the type matches, else the fallback.
    std::int16_t BoolValue() const;  // -1 or 0
    std::int32_t I4Value() const;
    const std::u16string& StringValue() const;
    const HostRef& ObjectValue() const;
    const VariantArray& ArrayValue() const;

    // Conversions as VariantChangeType makes them: integers and floats widen,
    // floats round half to even, booleans give -1/0, numeric strings parse.
    [[nodiscard]] bool ToInt32(std::int32_t& out) const;
    [[nodiscard]] bool ToDouble(double& out) const;
    [[nodiscard]] bool ToString(std::u16string& out) const;

    bool operator==(const Variant& other) const;
    bool operator!=(const Variant& other) const { return !(*this == other); }

  private:
    using Value = std::variant<std::monostate, std::int16_t, std::int32_t, float, double,
                               std::u16string, HostRef, std::shared_ptr<VariantArray>>;
    VarType type_ = VarType::Empty;
    Value value_;
};

}  // namespace qb::host
