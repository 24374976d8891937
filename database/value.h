#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "database/date_time.h"

namespace kx {

// One field of a row or one parameter of a statement: NULL, a whole number, a number, a UTF-8 text or a
// date-time. The To… conversions raise "Invalid use of Null" for NULL, "Type mismatch" for a text that is no
// such value and "Overflow" for a number out of range.
class Value {
 public:
  Value() = default;  // NULL
  Value(std::nullopt_t) {}
  Value(std::int16_t number) : data_(std::int64_t{number}) {}
  Value(std::int32_t number) : data_(std::int64_t{number}) {}
  Value(std::int64_t number) : data_(number) {}
  Value(double number) : data_(number) {}
  Value(float number) : data_(double{number}) {}
  Value(std::string text) : data_(std::move(text)) {}
  Value(std::string_view text) : data_(std::string(text)) {}
  Value(const char* text) : data_(std::string(text)) {}
  Value(DateTime time) : data_(time) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(data_); }

  std::int16_t ToInt16() const;
  std::int32_t ToInt32() const;
  double ToDouble() const;
  float ToFloat() const;
  DateTime ToDateTime() const;
  std::string ToText() const;

  // The value, or `if_null` for NULL.
  std::int32_t ToInt32Or(std::int32_t if_null) const { return IsNull() ? if_null : ToInt32(); }
  float ToFloatOr(float if_null) const { return IsNull() ? if_null : ToFloat(); }
  double ToDoubleOr(double if_null) const { return IsNull() ? if_null : ToDouble(); }
  DateTime ToDateTimeOr(DateTime if_null) const { return IsNull() ? if_null : ToDateTime(); }
  std::string ToTextOr(std::string_view if_null) const { return IsNull() ? std::string(if_null) : ToText(); }

  using Data = std::variant<std::monostate, std::int64_t, double, std::string, DateTime>;
  const Data& data() const { return data_; }

  friend bool operator==(const Value&, const Value&) = default;

 private:
  Data data_;
};

}  // namespace kx
