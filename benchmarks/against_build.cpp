#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "benchmarks/child_process.h"
#include "benchmarks/measures.h"
#include "database/text.h"

namespace kx::bench {
namespace {

// A client of one build's library on a plant of its own.
struct Contestant {
  Contestant(const std::string& library, const MasterPlant::Copy& copy)
      : plant(copy), client({KXDATA7_BENCHMARK_CLIENT, library, copy.connection, "serve"}) {}

  // The time of each call in µs.
  std::vector<double> Run(const std::string& task, std::size_t calls) {
    client.WriteLine(Concat(task, " ", calls));
    std::istringstream answer(client.ReadLine());
    std::vector<double> times(calls);
    for (double& time : times) {
      answer >> time;
      time /= 1000;
    }
    return times;
  }

  MasterPlant::Copy plant;
  ChildProcess client;
};

// The n-th part of ten of sorted numbers.
double Tenth(const std::vector<double>& sorted, std::size_t n) {
  return sorted[(sorted.size() - 1) * n / 10];
}

void Tell(Report& report, const std::string& measure, std::vector<double> ratios, double other_time,
          double own_time) {
  std::ranges::sort(ratios);
  report.Note(measure, Concat(Digits(Median(ratios), 3), " (", Digits(Tenth(ratios, 1), 3), " to ",
                              Digits(Tenth(ratios, 9), 3), "; ", Digits(own_time, 1), " µs, the other ",
                              Digits(other_time, 1), " µs)"));
}

}  // namespace

void MeasureAgainstBuild(Report& report, const Ground& ground, const std::filesystem::path& folder,
                         int batches, int rounds_per_batch) {
  const std::filesystem::path library = folder / std::filesystem::path(KXDATA7_LIBRARY).filename();
  if (!std::filesystem::exists(library)) throw std::runtime_error(Concat("there is no ", library.string()));
  TellProgress(Concat("every event against the build in ", folder.string(), ", ", ground.name));
  constexpr std::array kMachines = {1};
  MasterPlant master(ground,
                     [&](test::Plant& plant) { QueueRounds(plant, batches * rounds_per_batch, kMachines); });
  std::array<Contestant, 2> both{Contestant(KXDATA7_LIBRARY, master.MakeCopy()),
                                 Contestant(library.string(), master.MakeCopy())};

  const auto measure = [&](const std::string& task, std::size_t calls, std::size_t kinds,
                           std::string_view only_name) {
    std::vector<std::vector<double>> ratios(kinds);
    std::array<std::vector<std::vector<double>>, 2> times{std::vector<std::vector<double>>(kinds),
                                                          std::vector<std::vector<double>>(kinds)};
    for (int batch = 0; batch < batches; ++batch) {
      std::array<std::vector<double>, 2> now;
      for (const std::size_t turn : {0U, 1U}) {
        const std::size_t who = (turn + static_cast<std::size_t>(batch)) % 2;
        now[who] = both[who].Run(task, calls);
      }
      for (std::size_t kind = 0; kind < kinds; ++kind) {
        std::array<std::vector<double>, 2> of_kind;
        for (const std::size_t who : {0U, 1U}) {
          for (std::size_t i = kind; i < calls; i += kinds) of_kind[who].push_back(now[who][i]);
          times[who][kind].insert(times[who][kind].end(), of_kind[who].begin(), of_kind[who].end());
        }
        ratios[kind].push_back(Median(of_kind[1]) / Median(of_kind[0]));
      }
    }
    for (std::size_t kind = 0; kind < kinds; ++kind)
      Tell(report, Concat(only_name.empty() ? kEventTypes[kind].name : only_name, ", ", ground.name),
           ratios[kind], Median(times[1][kind]), Median(times[0][kind]));
  };
  measure("process", static_cast<std::size_t>(rounds_per_batch) * kRoundSize, kRoundSize, "");
  measure("append", static_cast<std::size_t>(20 * rounds_per_batch), 1, kEventTypes[kAppend].name);
  if (DumpOf(both[0].plant.connection) != DumpOf(both[1].plant.connection))
    throw std::runtime_error("the two builds did not come to the same rows");
}

}  // namespace kx::bench
