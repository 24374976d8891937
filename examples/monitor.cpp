// A machine monitor: it reports a cycle and a good part of the demo plant's first lathe and works off what
// waits. On Windows its arguments must be ASCII.
//
//   kxdata7 create plant.db --demo
//   monitor "Provider=SQLite;Data Source=plant.db" [the component's file; without it, what is registered]
//
// Exit status: 0 everything was worked in, 1 something was not, 2 the arguments are wrong.
#include <KXData7.h>

#include <iostream>

namespace {

namespace command_type = kxdata7::command_type;
namespace time_code = kxdata7::time_code;

// By the numbers of the DNC system, in which the demo plant's commands have the numbers of their types.
void Report(kxdata7::Client& component, const char* what, LONG command, LONG time_code, const char* param) {
  component
      .Append({.dept = 10, .location = 1, .group = 10, .machine = 101, .command = command}, param, time_code,
              kxdata7::NumberKind::kDnc)
      .OrThrow();
  std::cout << "Queued: " << what << ".\n";
}

// Applies the events that wait, one by one.
void WorkOff(kxdata7::Client& component) {
  const LONG waiting = component.Count();
  LONG applied = 0;
  kxdata7::Answer answer;
  while (applied < waiting && (answer = component.Next())) ++applied;
  std::cout << waiting << " events waited, " << applied << " were applied.\n";
  if (!answer.error.empty()) throw std::runtime_error("The first event stays: " + answer.error);
  if (applied < waiting && component.Count() > 0)
    throw std::runtime_error("The first event stays although applied.");
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2 && argc != 3) {
    std::cerr << "Usage: monitor CONNECTION_STRING [COMPONENT]\n";
    return 2;
  }
#ifdef _WIN32
  // COM is the thread's until it ends.
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 1;
#endif
  try {
    kxdata7::Client component(argc == 3 ? kxdata7::Library::Load(argv[2]) : kxdata7::Library::Registered());
    component.Connect(argv[1], kxdata7::Dialect::kSqlServer).OrThrow();
    Report(component, "cycle start", command_type::kCycle, time_code::kStart, "");
    Report(component, "cycle end", command_type::kCycle, time_code::kEnd, "");
    Report(component, "one good part", command_type::kGoodPartCount, time_code::kStart, "1");
    WorkOff(component);
  } catch (const std::exception& error) {
    std::cerr << "monitor: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
