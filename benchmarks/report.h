#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::bench {

// The one table that comes out: a line a measure.
class Report {
 public:
  // A measure that has to reach something.
  void Add(std::string measure, std::string goal, std::string reached, bool is_reached);
  // A measure that is told for its own sake.
  void Note(std::string measure, std::string reached);
  void Print() const;

 private:
  struct Line {
    std::string measure;
    std::string goal;
    std::string reached;
  };
  std::vector<Line> lines_;
  int goals_ = 0;
  int missed_ = 0;
};

// A number with so many digits behind the point.
std::string Digits(double number, int digits);

double Median(std::vector<double> numbers);

// What is being measured now, on the standard error output.
void TellProgress(std::string_view what);

}  // namespace kx::bench
