// A client process of the component as another program would be, by the public header alone:
//   client LIBRARY CONNECTION_STRING TASK [SECONDS]
// Tasks:
//   work             works the queue off; prints its memory after the first 50,000 events, at the end and at
//                    most, in KiB, and events
//   process SECONDS  works events in; prints how many
//   append SECONDS   appends; prints how many, and the slowest in ms
//   serve            reads lines "process N" and "append N"; prints a line of the calls' nanoseconds for each

#include <KXData7.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using std::chrono::steady_clock;

// A line of the process's status: "VmRSS" or "VmHWM".
long MemoryInKib(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  return 0;
}

using kxdata7::Client;

// False when the queue is empty.
bool Process(Client& client) {
  const kxdata7::Answer answer = client.Next();
  if (!answer && !answer.neither()) throw std::runtime_error(answer.error);
  return answer.done;
}

void Append(Client& client) { client.Append({1, 2, 3, 1, 113}, "1", 0).OrThrow(); }

void WorkOff(Client& client) {
  constexpr long kWarmUp = 50'000;
  long events = 0;
  long first = 0;
  while (Process(client)) {
    if (++events == kWarmUp) first = MemoryInKib("VmRSS");
  }
  std::cout << first << ' ' << MemoryInKib("VmRSS") << ' ' << MemoryInKib("VmHWM") << ' ' << events
            << std::endl;
}

template <class Call>
void RunFor(int seconds, Call call) {
  long calls = 0;
  steady_clock::duration slowest{};
  const auto end = steady_clock::now() + std::chrono::seconds(seconds);
  for (auto now = steady_clock::now(); now < end; ++calls) {
    call();
    const auto after = steady_clock::now();
    slowest = std::max(slowest, after - now);
    now = after;
  }
  std::cout << calls << ' ' << std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()
            << std::endl;
}

void Serve(Client& client) {
  std::string task;
  for (std::size_t calls = 0; std::cin >> task >> calls;) {
    std::vector<std::int64_t> times(calls);
    for (std::int64_t& time : times) {
      const auto begin = steady_clock::now();
      if (task == "append") {
        Append(client);
      } else if (!Process(client)) {
        throw std::runtime_error("no event is left");
      }
      time = std::chrono::nanoseconds(steady_clock::now() - begin).count();
    }
    for (const std::int64_t time : times) std::cout << time << ' ';
    std::cout << std::endl;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  try {
    Client client(kxdata7::Library::Load(argv[1]));
    client.Connect(argv[2]).OrThrow();
    const std::string task = argv[3];
    if (task == "work") WorkOff(client);
    if (task == "process") RunFor(std::stoi(argv[4]), [&] { Process(client); });
    if (task == "append") RunFor(std::stoi(argv[4]), [&] { Append(client); });
    if (task == "serve") Serve(client);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << std::endl;
    return 1;
  }
}
