// Measures the component and prints one table in Markdown.
//   benchmarks [--quick] [--only NAME] [--disk FOLDER]     NAME: disk, cpu, com, growth, server, memory,
//   producers

#include <sqlite3.h>
#include <sys/vfs.h>

#include <linux/magic.h>
#include <cstdlib>
#include <iostream>

#include "benchmarks/measures.h"
#include "database/text.h"

namespace kx::bench {
namespace {

bool IsInMemory(const std::filesystem::path& folder) {
  struct statfs info {};
  return statfs(folder.c_str(), &info) == 0 && info.f_type == TMPFS_MAGIC;
}

struct Arguments {
  Effort effort;
  std::string only;
  std::filesystem::path plant;
  std::filesystem::path against;
  std::filesystem::path disk = std::filesystem::temp_directory_path();
};

Arguments Parse(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--quick") {
      arguments.effort.quick = true;
    } else if (argument == "--only" && i + 1 < argc) {
      arguments.only = argv[++i];
    } else if (argument == "--plant" && i + 1 < argc) {
      arguments.plant = argv[++i];
    } else if (argument == "--against" && i + 1 < argc) {
      arguments.against = argv[++i];
    } else if (argument == "--disk" && i + 1 < argc) {
      arguments.disk = argv[++i];
    } else {
      throw std::runtime_error(Concat("unknown argument: ", argument));
    }
  }
  return arguments;
}

void LeavePlant(const Ground& ground, const std::filesystem::path& file) {
  constexpr int kMachines[] = {1};
  MasterPlant master(ground, [&](test::Plant& plant) { QueueRounds(plant, 1000, kMachines); });
  std::filesystem::copy_file(master.MakeCopy().file, file);
}

void Run(const Arguments& arguments) {
  const Effort effort = arguments.effort;
  const Ground disk{"on disk, Synchronous=Full", arguments.disk, "Full", nullptr};
  Ground memory{"in memory, Synchronous=Normal", "/dev/shm", "Normal", nullptr};
  if (!IsInMemory(memory.folder)) {
    std::cerr << "There is no /dev/shm: what should lie in memory lies on the disk." << std::endl;
    memory.folder = arguments.disk;
  }
  if (IsInMemory(disk.folder)) {
    std::cerr << disk.folder << " is no disk: name one with --disk." << std::endl;
  }

  if (!arguments.plant.empty()) return LeavePlant(memory, arguments.plant);
  const auto wanted = [&](std::string_view name) { return arguments.only.empty() || arguments.only == name; };
  Report report;
  if (!arguments.against.empty()) {
    MeasureAgainstBuild(report, memory, arguments.against, effort.Choose(60, 15), 20);
    MeasureAgainstBuild(report, disk, arguments.against, effort.Choose(60, 15), 5);
    return report.Print();
  }
  if (wanted("disk")) MeasureAgainstFloor(report, disk, 0.95, effort.Choose(40, 10), 10);
  if (wanted("cpu")) MeasureAgainstFloor(report, memory, 0.92, effort.Choose(40, 10), 50);
  if (wanted("com")) MeasureComCalls(report);
  if (wanted("growth")) MeasureGrowth(report, memory, effort);
  if (wanted("server")) {
    setenv("TMPDIR", disk.folder.c_str(), 1);
    const Ground ground{"on PostgreSQL", disk.folder, {}, &test::TestServer(/*durable=*/true)};
    MeasureAgainstFloor(report, ground, 0.8, effort.Choose(12, 4), 10);
  }
  if (wanted("rollover")) MeasureRollOver(report, memory, effort);
  if (wanted("memory")) MeasureMemory(report, memory, effort);
  if (wanted("producers")) MeasureProducers(report, disk, effort);
  report.Print();
}

}  // namespace
}  // namespace kx::bench

int main(int argc, char** argv) {
  try {
    kx::bench::Run(kx::bench::Parse(argc, argv));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "benchmarks: " << error.what() << std::endl;
    return 1;
  }
}
