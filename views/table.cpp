#include "views/table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ostream>

#include "database/text.h"
#include "views/terminal.h"
#include "views/words.h"

namespace kx::tool {
namespace {

// Totals are single-precision numbers.
std::string FloatText(double number, bool csv) {
  std::array<char, 64> text{};
  const auto single = static_cast<float>(number);
  char* const end = text.data() + text.size();
  const auto result = csv ? std::to_chars(text.data(), end, single)
                          : std::to_chars(text.data(), end, single, std::chars_format::fixed, 2);
  return result.ec == std::errc() ? std::string(text.data(), result.ptr) : std::to_string(number);
}

std::string CellText(const Value& value, bool csv) {
  if (value.IsNull()) return {};
  if (const auto* number = std::get_if<double>(&value.data())) return FloatText(*number, csv);
  std::string text = value.ToText();
  if (!csv) {
    text = ShownText(text);
  } else if (text.find_first_of(",\"\r\n") != std::string::npos) {
    std::string quoted = "\"";
    for (const char c : text) quoted.append(c == '"' ? 2 : 1, c);
    text = quoted + '"';
  }
  return text;
}

std::string JsonCell(const Value& value) {
  if (value.IsNull()) return "null";
  if (std::holds_alternative<std::int64_t>(value.data())) return value.ToText();
  if (const auto* number = std::get_if<double>(&value.data())) return FloatText(*number, true);
  return JsonText(value.ToText());
}

bool IsNumber(const Value& value) {
  return value.IsNull() || std::holds_alternative<std::int64_t>(value.data()) ||
         std::holds_alternative<double>(value.data());
}

// Columns that a UTF-8 text takes on a terminal.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintAligned(std::ostream& output, const std::vector<std::vector<std::string>>& lines,
                  const std::vector<bool>& right) {
  std::vector<std::size_t> widths(right.size());
  for (const auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], Width(line[i]));
  }
  for (const auto& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      const std::string padding(widths[i] - Width(line[i]), ' ');
      text += (i == 0 ? "" : "  ") + (right[i] ? padding + line[i] : line[i] + padding);
    }
    output << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
  }
}

}  // namespace

std::string Table::JsonRow(std::size_t row) const {
  std::string text = "{";
  for (std::size_t i = 0; i < titles_.size(); ++i)
    Append(text, i == 0 ? "" : ", ", JsonText(titles_[i]), ": ", JsonCell(rows_[row][i]));
  return text + "}";
}

void Table::Print(std::ostream& output, Format format) const {
  if (format == Format::kJson) {
    output << '[';
    for (std::size_t row = 0; row < rows_.size(); ++row)
      output << (row == 0 ? "\n  " : ",\n  ") << JsonRow(row);
    output << (rows_.empty() ? "]" : "\n]");
    return;
  }
  const bool csv = format == Format::kCsv;
  std::vector<std::vector<std::string>> lines = {titles_};
  std::vector<bool> right(titles_.size(), !rows_.empty());
  for (const auto& row : rows_) {
    auto& line = lines.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) {
      line.push_back(CellText(row[i], csv));
      right[i] = i >= right_from_ || (right[i] && IsNumber(row[i]));
    }
  }
  if (!csv) return PrintAligned(output, lines, right);
  for (const auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) output << (i == 0 ? "" : ",") << line[i];
    output << '\n';
  }
}

}  // namespace kx::tool
