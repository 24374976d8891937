#pragma once

#include "benchmarks/plants.h"
#include "benchmarks/report.h"

namespace kx::bench {

// How much is measured: everything, or a small part of it for a first look.
struct Effort {
  bool quick = false;
  int Choose(int full, int if_quick) const { return quick ? if_quick : full; }
};

// Every event type of the round, and the append, against the floor: the same statements from a program that
// does nothing else. On a server statements and round trips as well.
void MeasureAgainstFloor(Report& report, const Ground& ground, double goal, int batches,
                         int rounds_per_batch);

// Every event against the library of another build, in `folder`, by turns: how many times as long the other
// takes, as the median of the batches' ratios with the range that eight of ten lie in.
void MeasureAgainstBuild(Report& report, const Ground& ground, const std::filesystem::path& folder,
                         int batches, int rounds_per_batch);

// The same work on big tables and small ones, in memory.
void MeasureGrowth(Report& report, const Ground& memory, Effort effort);

// What the way through COM costs over the C++ routine behind it.
void MeasureComCalls(Report& report);

// What a client process takes: memory over a million events, and the throughput of several at once.
void MeasureRollOver(Report& report, const Ground& memory, Effort effort);
void MeasureMemory(Report& report, const Ground& memory, Effort effort);
void MeasureProducers(Report& report, const Ground& disk, Effort effort);

}  // namespace kx::bench
