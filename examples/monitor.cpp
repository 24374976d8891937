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

// Of the DNC system: where the machine stands, and the commands.
constexpr LONG kDept = 10, kLocation = 1, kGroup = 10, kMachine = 101;
constexpr LONG kCycle = 9, kGoodParts = 13;

constexpr LONG kStart = 0, kEnd = 1;

constexpr LONG kSqlServer = 2;  // the dialect of the statements; an SQLite plant takes each of the three

class Monitor {
 public:
  Monitor(const kxdata7::Library& library, const char* connection_string)
      : library_(library), component_(library.Create()) {
    kxdata7::Bstr error;
    VARIANT_BOOL connected = VARIANT_FALSE;
    library_.Check(component_->ConnectToDatabase(kxdata7::Bstr::FromUtf8(connection_string).get(), kSqlServer,
                                                 error.inout(), &connected));
    if (connected != VARIANT_TRUE) throw std::runtime_error(error.ToUtf8());
  }

  void Report(const char* what, LONG command, LONG time_code, const char* param) {
    kxdata7::Bstr error;
    VARIANT_BOOL queued = VARIANT_FALSE;
    library_.Check(component_->AppendItemToMDCLogDNC(kDept, kLocation, kGroup, kMachine, command,
                                                     kxdata7::Bstr::FromUtf8(param).get(), time_code,
                                                     error.inout(), &queued));
    if (queued != VARIANT_TRUE) {
      throw std::runtime_error(error.view().empty() ? "The database did not take the event."
                                                    : error.ToUtf8());
    }
    std::cout << "Queued: " << what << ".\n";
  }

  LONG Count() {
    LONG count = 0;
    library_.Check(component_->GetMDCLogCount(&count));
    return count;
  }

  // Applies the events that wait, one by one.
  void WorkOff() {
    const LONG waiting = Count();
    LONG applied = 0;
    kxdata7::Bstr error;
    for (; applied < waiting; ++applied) {
      VARIANT_BOOL done = VARIANT_FALSE;
      library_.Check(component_->DoNextItemFromMDCLog(error.inout(), &done));
      if (done != VARIANT_TRUE) break;
    }
    std::cout << waiting << " events waited, " << applied << " were applied.\n";
    // A False with a text: the first event stays for this reason. Without a text: nothing waits, or the event
    // was applied and only its row stays.
    if (!error.view().empty()) throw std::runtime_error("The first event stays: " + error.ToUtf8());
    if (applied < waiting && Count() > 0) throw std::runtime_error("The first event stays although applied.");
  }

 private:
  const kxdata7::Library& library_;
  kxdata7::ComPtr<_CKXData7Obj> component_;
};

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
    const auto library = argc == 3 ? kxdata7::Library::Load(argv[2]) : kxdata7::Library::Registered();
    Monitor monitor(library, argv[1]);
    monitor.Report("cycle start", kCycle, kStart, "");
    monitor.Report("cycle end", kCycle, kEnd, "");
    monitor.Report("one good part", kGoodParts, kStart, "1");
    monitor.WorkOff();
  } catch (const std::exception& error) {
    std::cerr << "monitor: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
