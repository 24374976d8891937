#include "benchmarks/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>

namespace kx::bench {

void Report::Add(std::string measure, std::string goal, std::string reached, bool is_reached) {
  ++goals_;
  if (!is_reached) {
    ++missed_;
    reached += ", **missed**";
  }
  lines_.push_back({std::move(measure), std::move(goal), std::move(reached)});
}

void Report::Note(std::string measure, std::string reached) {
  lines_.push_back({std::move(measure), "", std::move(reached)});
}

void Report::Print() const {
  std::cout << "| measure | has to reach | reached |\n|---|---|---|\n";
  for (const Line& line : lines_) {
    std::cout << "| " << line.measure << " | " << line.goal << " | " << line.reached << " |\n";
  }
  std::cout << "\n" << goals_ - missed_ << " of " << goals_ << " measures reached." << std::endl;
}

std::string Digits(double number, int digits) {
  std::array<char, 40> text{};
  return {text.data(),
          static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.*f", digits, number))};
}

double Median(std::vector<double> numbers) {
  if (numbers.empty()) return 0;
  const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
  std::nth_element(numbers.begin(), middle, numbers.end());
  return *middle;
}

void TellProgress(std::string_view what) { std::cerr << "Measuring " << what << "..." << std::endl; }

}  // namespace kx::bench
