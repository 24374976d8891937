#include "inputs/observation.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "database/ascii.h"
#include "database/text.h"
#include "kxdata7/text.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

template <std::size_t kCount>
bool IsOneOf(const std::array<std::string_view, kCount>& words, std::string_view value) {
  return std::ranges::any_of(words, [&](std::string_view word) { return EqualsIgnoringCase(word, value); });
}

constexpr std::array<std::string_view, 9> kExecutions = {
    "ACTIVE",    "READY",         "STOPPED", "PROGRAM_COMPLETED", "PROGRAM_STOPPED", "INTERRUPTED",
    "FEED_HOLD", "OPTIONAL_STOP", "WAIT"};
constexpr std::array<std::string_view, 2> kStops = {"TRIGGERED", "ARMED"};

// "+01:00" or "+0100" in minutes.
std::optional<int> ParseOffset(std::string_view text) {
  std::string digits(text.substr(1));
  if (digits.size() == 5 && digits[2] == ':') digits.erase(2, 1);
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (digits.size() != 4 || error != std::errc() || end != digits.data() + 4 || number < 0 || number > 1459)
    return std::nullopt;
  const int minutes = number / 100 * 60 + number % 100;
  return text[0] == '-' ? -minutes : minutes;
}

}  // namespace

const std::string* Report::Find(Item item) const {
  const auto found = std::ranges::find(observations, item, &Observation::item);
  return found == observations.end() ? nullptr : &found->value;
}

std::string PlainText(std::string_view text) {
  std::string plain(text);
  const auto is_beyond = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
  if (std::ranges::any_of(plain, is_beyond)) plain = kxdata7::ToUtf8(kxdata7::ToUtf16(plain));
  std::ranges::replace_if(
      plain, [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
  return plain;
}

void AddObservation(std::vector<Report>& reports, Item item, std::string_view value) {
  if (reports.back().Find(item) != nullptr) {
    Report next{reports.back().moment, reports.back().time, reports.back().opening, {}};
    reports.push_back(std::move(next));
  }
  std::string text = EqualsIgnoringCase(value, "UNAVAILABLE") ? std::string() : std::string(value);
  if (item == Item::kExecution || item == Item::kStop || item == Item::kMode || item == Item::kAlarm) {
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
  }
  reports.back().observations.push_back({item, std::move(text)});
}

bool IsPlausible(Item item, std::string_view value) {
  if (value.empty() || EqualsIgnoringCase(value, "UNAVAILABLE")) return true;
  switch (item) {
    case Item::kExecution: return IsOneOf(kExecutions, value);
    case Item::kStop: return IsOneOf(kStops, value);
    case Item::kParts:
    case Item::kGoodParts:
    case Item::kBadParts: return ParsePartCount(value).has_value();
    default: return true;
  }
}

std::string ImplausibleText(Item item, std::string_view value) {
  return Concat("\"", value.substr(0, 100), "\" is no ",
                item == Item::kExecution ? "state of execution"
                : item == Item::kStop    ? "state of an emergency stop"
                                         : "part count");
}

std::optional<PartCount> ParsePartCount(std::string_view value) {
  const std::size_t colon = value.find(':');
  const std::string_view number = value.substr(0, colon);
  std::int64_t count = 0;
  const char* const last = number.data() + number.size();
  auto [end, error] = std::from_chars(number.data(), last, count);
  if (error != std::errc() || end == number.data()) return std::nullopt;
  // Some write a whole number with a fraction of zeros.
  if (end != last && *end == '.') end = std::find_if(end + 1, last, [](char c) { return c != '0'; });
  if (end != last) return std::nullopt;
  return PartCount{count, colon != std::string_view::npos};
}

void Notices::Say(Kind kind, std::string_view matter, const std::string& text) {
  if (said_.size() < kMostMatters && said_.insert(std::string(matter)).second) sink_(kind, text);
}

std::optional<Moment> ParseMoment(std::string_view text, bool& offset_given) {
  using std::chrono::microseconds;
  int offset = 0;
  offset_given = true;
  const std::size_t sign = text.find_last_of("+-");
  if (text.ends_with('Z') || text.ends_with('z')) {
    text.remove_suffix(1);
  } else if (sign != std::string_view::npos && sign > 10) {
    const auto minutes = ParseOffset(text.substr(sign));
    if (!minutes) return std::nullopt;
    offset = *minutes;
    text = text.substr(0, sign);
  } else {
    offset_given = false;
  }
  const auto time = DateTime::Parse(text);
  if (!time) return std::nullopt;
  std::int64_t fraction = 0;
  const std::size_t point = text.find('.');
  if (point != std::string_view::npos) {
    std::string digits(text.substr(point + 1, 6));
    digits.resize(6, '0');
    std::from_chars(digits.data(), digits.data() + 6, fraction);
  }
  const auto seconds = time->time().time_since_epoch() - std::chrono::minutes(offset);
  return Moment(microseconds(seconds) + microseconds(fraction));
}

DateTime ToPlantTime(Moment moment, bool is_plant_time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(moment).time_since_epoch();
  return is_plant_time ? DateTime(std::chrono::local_seconds(seconds)) : PlantTime(seconds.count());
}

}  // namespace kx::tool
