#pragma once

#include <string>
#include <string_view>

#include "views/timeline.h"

namespace kx::tool {

// Pieces of pictures as SVG without a viewBox: x is in per cent, so that pictures stretch and texts do not.

std::string Percent(double number);

std::string Rect(std::string_view classes, double x, double width, std::string_view attributes,
                 std::string_view title = {});
// `x` and `y` are attribute values such as "12%" or "8".
std::string Line(std::string_view classes, std::string_view x1, std::string_view x2, std::string_view y1,
                 std::string_view y2);
// `attributes` come as they stand; `text` is escaped.
std::string Text(std::string_view classes, double x, std::string_view attributes, std::string_view text);

// A state in a band: its colour and height, from `x` over `width`.
std::string StateMark(State state, double x, double width, std::string_view title = {});

// Where moments lie on a time axis, in per cent.
class Axis {
 public:
  Axis(DateTime from, DateTime to) : from_(from), seconds_(SecondsBetween(from, to)) {}
  double At(DateTime time) const {
    return 100.0 * static_cast<double>(SecondsBetween(from_, time)) / static_cast<double>(seconds_);
  }
  std::int64_t seconds() const { return seconds_; }

 private:
  DateTime from_;
  std::int64_t seconds_;
};

// The band of a timeline. Downtimes are at least `least_down` per cent wide. A long time is drawn in columns,
// of which each shows a downtime if it holds any, else the state with the most time.
std::string Band(const Timeline& timeline, const Axis& axis, DateTime from, double least_down, bool titles,
                 bool columns);

// "Idle, 14:00–14:10, 10 min".
std::string SegmentTitle(const Segment& segment);

}  // namespace kx::tool
