#include "inputs/check_sources.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <ostream>
#include <vector>

#include "database/text.h"
#include "inputs/live_source.h"
#include "inputs/source.h"
#include "plant/progress.h"

namespace kx::tool {
namespace {

// A source that is tried, or why it cannot be.
struct Trial {
  std::string name;
  std::unique_ptr<LiveSource> source;
  std::string error;
};

std::vector<Trial> Prepare(Plant& plant, LiveSource::Surroundings& around) {
  std::vector<Trial> trials;
  for (const InputSource& source : ReadSources(plant)) {
    if (source.kind.empty()) continue;
    Trial trial{Concat("machine ", source.machine_id), nullptr, {}};
    try {
      trial.name = plant.FindMachine(source.machine_id).name;
      trial.source = std::make_unique<LiveSource>(KnownSource{source, trial.name, {}}, around);
    } catch (const ToolError& error) {
      trial.error = error.what();
    }
    trials.push_back(std::move(trial));
  }
  return trials;
}

// Runs the links until all have answered, but no longer than `limit`, and then for `listen`.
void Listen(boost::asio::io_context& io, const std::vector<Trial>& trials, std::chrono::milliseconds limit,
            std::chrono::milliseconds listen) {
  using Clock = std::chrono::steady_clock;
  const auto answers = [](const Trial& trial) { return trial.source == nullptr || trial.source->is_open(); };
  for (const auto end = Clock::now() + limit; Clock::now() < end && !std::ranges::all_of(trials, answers);)
    io.run_one_for(std::chrono::milliseconds(50));
  io.run_for(listen);
}

}  // namespace

bool CheckSources(Plant& plant, std::ostream& out, const LinkSettings& settings,
                  std::chrono::milliseconds limit, std::chrono::milliseconds listen) {
  boost::asio::io_context io;
  Links links(io, settings);
  LiveSource::Surroundings around;
  std::vector<std::string> said;
  around.say = around.complain = [&](const std::string& text) { said.push_back(text); };
  std::vector<Trial> trials = Prepare(plant, around);
  for (Trial& trial : trials) {
    try {
      if (trial.source != nullptr) trial.source->Open(links);
    } catch (const ToolError& error) {
      trial.error = error.what();
      trial.source.reset();
    }
  }
  Listen(io, trials, limit, listen);
  bool all = true;
  for (const Trial& trial : trials) {
    const LiveSource* const source = trial.source.get();
    const bool good = source != nullptr && source->is_open() && source->TakesSomething();
    all &= good;
    out << (good ? "ok      " : "failed  ") << trial.name << ": ";
    if (source == nullptr) {
      out << trial.error;
    } else if (source->is_open()) {
      out << source->known().source.address << " answers, with " << Grouped(source->lines()) << " lines, and "
          << source->Taken();
    } else {
      out << source->known().source.address << ": " << (source->why().empty() ? "no answer" : source->why());
    }
    out << '\n';
  }
  for (const std::string& text : said) {
    if (text.find(" is not heard, ") == std::string::npos) out << "note    " << text << '\n';
  }
  if (trials.empty()) out << "No machine of the plant has a source.\n";
  return all && !trials.empty();
}

}  // namespace kx::tool
