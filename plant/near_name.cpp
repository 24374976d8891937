#include "plant/near_name.h"

#include <algorithm>
#include <numeric>

#include "database/ascii.h"

namespace kx::tool {
namespace {

// How many letters must be added, taken away, changed, or swapped with their neighbour.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        row[j] = std::min(row[j], before[j - 2] + 1);
    }
    before.swap(last);
    last.swap(row);
  }
  return last.back();
}

}  // namespace

std::string DidYouMean(std::string_view given, const std::vector<std::string>& names) {
  const std::string wanted = ToLowerAscii(given);
  std::size_t nearest = wanted.size() / 3 + 2;  // a third of the letters wrong is near
  std::string found;
  for (const std::string& name : names) {
    const std::size_t distance = Distance(wanted, ToLowerAscii(name));
    if (distance >= nearest) continue;
    nearest = distance;
    found = name;
  }
  return found.empty() ? found : "; did you mean \"" + found + "\"?";
}

}  // namespace kx::tool
