#pragma once

// What the floor programs share: the statements that they replay, and the conversation with the benchmark. It
// includes nothing of the project: a floor is what a plain client of the database needs for the same work.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace floor_program {

struct Moment {
  std::string text;  // "YYYY-MM-DD HH:MM:SS"
};
using Parameter = std::variant<std::monostate, std::int64_t, double, std::string, Moment>;

// A deferred statement commits by itself, without waiting for the disk.
enum class Action : char { kStatement = 'S', kDeferred = 'D', kBegin = 'B', kCommit = 'C', kRollback = 'R' };

struct Step {
  Action action = Action::kStatement;
  std::string sql;
  std::vector<Parameter> parameters;
};

// The work for one event.
struct Event {
  std::vector<Step> steps;
};

// The file in which the benchmark hands events over: lengths and values as text, texts by their length.
inline void WriteText(std::ostream& out, std::string_view text) { out << text.size() << ' ' << text << '\n'; }

inline std::string ExactText(double number) {
  std::array<char, 40> text{};
  return {text.data(), static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%a", number))};
}

inline void Write(std::ostream& out, const Event& event) {
  out << event.steps.size() << '\n';
  for (const Step& step : event.steps) {
    out << static_cast<char>(step.action) << ' ' << step.parameters.size() << ' ';
    WriteText(out, step.sql);
    for (const Parameter& parameter : step.parameters) {
      out << parameter.index() << ' ';
      if (const auto* number = std::get_if<std::int64_t>(&parameter)) out << *number << '\n';
      if (const auto* real = std::get_if<double>(&parameter)) WriteText(out, ExactText(*real));
      if (const auto* text = std::get_if<std::string>(&parameter)) WriteText(out, *text);
      if (const auto* moment = std::get_if<Moment>(&parameter)) WriteText(out, moment->text);
    }
  }
}

inline std::string ReadText(std::istream& in) {
  std::size_t size = 0;
  in >> size;
  std::string text(size, '\0');
  in.get();
  in.read(text.data(), static_cast<std::streamsize>(size));
  return text;
}

inline Parameter ReadParameter(std::istream& in) {
  std::size_t index = 0;
  in >> index;
  switch (index) {
    case 1: {
      std::int64_t number = 0;
      in >> number;
      return number;
    }
    case 2: return std::stod(ReadText(in));
    case 3: return ReadText(in);
    case 4: return Moment{ReadText(in)};
    default: return {};
  }
}

inline std::vector<Event> ReadEvents(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<Event> events;
  Event event;
  for (std::size_t steps = 0; in >> steps;) {
    event.steps.assign(steps, {});
    for (Step& step : event.steps) {
      char action = 0;
      std::size_t parameters = 0;
      in >> action >> parameters;
      step.action = static_cast<Action>(action);
      step.sql = ReadText(in);
      for (; parameters > 0; --parameters) step.parameters.push_back(ReadParameter(in));
    }
    events.push_back(event);
  }
  return events;
}

// Takes names of event files from the standard input and answers each, once it is replayed, with a line of
// the events' nanoseconds. `Database` prepares a step beforehand and then runs it; failures are exceptions.
template <class Database>
int Serve(Database& database) {
  for (std::string file; std::getline(std::cin, file);) {
    const std::vector<Event> events = ReadEvents(file);
    for (const Event& event : events) {
      for (const Step& step : event.steps) database.Prepare(step);
    }
    std::vector<std::int64_t> times;
    times.reserve(events.size());
    for (const Event& event : events) {
      const auto begin = std::chrono::steady_clock::now();
      for (const Step& step : event.steps) database.Run(step);
      times.push_back((std::chrono::steady_clock::now() - begin).count());
    }
    for (const std::int64_t time : times) std::cout << time << ' ';
    std::cout << std::endl;
    database.Forget();
  }
  return 0;
}

// The main function of a floor program.
template <class Database>
int Main(int argc, char** argv) {
  try {
    Database database(std::vector<std::string>(argv + 1, argv + argc));
    return Serve(database);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 1;
  }
}

}  // namespace floor_program
