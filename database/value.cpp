#include "database/value.h"

#include <array>
#include <charconv>
#include <limits>

#include "database/database_error.h"
#include "database/numeric_text.h"

namespace kx {
namespace {

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

template <class Int>
Int Narrow(std::int64_t number) {
  if (number < std::numeric_limits<Int>::min() || number > std::numeric_limits<Int>::max())
    throw OverflowError();
  return static_cast<Int>(number);
}

std::string NumberText(double number) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

}  // namespace

double Value::ToDouble() const {
  return std::visit(Overloaded{
                        [](std::monostate) -> double { throw InvalidUseOfNullError(); },
                        [](std::int64_t number) { return static_cast<double>(number); },
                        [](double number) { return number; },
                        [](const std::string& text) {
                          const auto number = ParseNumericText(text);
                          if (!number) throw TypeMismatchError();
                          return *number;
                        },
                        [](DateTime) -> double { throw TypeMismatchError(); },
                    },
                    data_);
}

float Value::ToFloat() const { return static_cast<float>(ToDouble()); }

std::int16_t Value::ToInt16() const {
  if (const auto* number = std::get_if<std::int64_t>(&data_)) return Narrow<std::int16_t>(*number);
  return RoundToInt16(ToDouble());
}

std::int32_t Value::ToInt32() const {
  if (const auto* number = std::get_if<std::int64_t>(&data_)) return Narrow<std::int32_t>(*number);
  return RoundToInt32(ToDouble());
}

DateTime Value::ToDateTime() const {
  if (IsNull()) throw InvalidUseOfNullError();
  if (const auto* time = std::get_if<DateTime>(&data_)) return *time;
  if (const auto* text = std::get_if<std::string>(&data_)) {
    if (const auto time = DateTime::Parse(*text)) return *time;
  }
  throw TypeMismatchError();
}

std::string Value::ToText() const {
  return std::visit(Overloaded{
                        [](std::monostate) -> std::string { throw InvalidUseOfNullError(); },
                        [](std::int64_t number) { return std::to_string(number); },
                        [](double number) { return NumberText(number); },
                        [](const std::string& text) { return text; },
                        [](DateTime time) { return time.ToText(); },
                    },
                    data_);
}

}  // namespace kx
