#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "database/text.h"
#include "inputs/collector.h"
#include "plant/create.h"
#include "plant/platform.h"
#include "plant/queue.h"
#include "tests/support/machines.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// A collector on a thread of its own, as long as it lives.
class Running {
 public:
  explicit Running(CollectOptions options) : collector_(std::move(options), out_, errors_) {
    thread_ = std::thread([this] {
      try {
        collector_.Run([this] {
          const std::lock_guard lock(mutex_);
          status_ = collector_.Status();
          running_ = true;
        });
      } catch (const std::exception& error) {
        failure_ = error.what();
      }
      running_ = true;
    });
    Until([&] { return running_.load(); });
  }
  ~Running() { Stop(); }

  void Stop() {
    collector_.Stop();
    if (thread_.joinable()) thread_.join();
  }
  void Reload() { collector_.Reload(); }
  std::string Status() {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  // The lines and documents that came in so far.
  std::int64_t Lines() {
    const std::string status = Status();
    std::string digits;
    for (const char c : status.substr(status.find("sources, ") + 9)) {
      if (c == ' ') break;
      if (c != ',') digits += c;
    }
    return std::stoll(digits);
  }
  // After Stop.
  std::string Said() { return out_.str() + errors_.str() + failure_ + collector_.Status(); }

 private:
  std::ostringstream out_, errors_;
  std::mutex mutex_;
  std::string failure_, status_;
  std::atomic<bool> running_ = false;
  Collector collector_;
  std::thread thread_;
};

// The tool as a process.
class Process {
 public:
  // Reads `input`; what it says goes to `output`.
  explicit Process(std::vector<std::string> arguments, const std::string& output = "/dev/null",
                   const std::string& input = "/dev/null") {
    arguments.insert(arguments.begin(), KXDATA7_TOOL);
    std::vector<char*> texts;
    for (std::string& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    id_ = fork();
    if (id_ != 0) return;
    const auto open = [](const std::string& file, const char* mode, std::FILE* stream) {
      if (std::freopen(file.c_str(), mode, stream) == nullptr) _exit(3);
    };
    open(input, "r", stdin);
    if (getenv("KXDATA7_SHOW_OUTPUT") == nullptr) {
      open(output, "a", stdout);
      open(output, "a", stderr);
    }
    execv(texts[0], texts.data());
    _exit(4);
  }
  ~Process() {
    if (id_ != 0) End(SIGKILL);
  }
  // Its wait status.
  int End(int signal) {
    kill(id_, signal);
    return Wait();
  }
  int Wait() {
    int status = 0;
    wait4(std::exchange(id_, 0), &status, 0, &usage);
    return status;
  }

  rusage usage{};

 private:
  pid_t id_;
};

class CollectTest : public testing::Test {
 protected:
  CollectTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    options_.plant =
        Concat("Provider=SQLite;Busy Timeout=20;Data Source=", ToText(folder_.path() / "plant.db"));
  }

  void Create(const std::string& start = "2026-01-12") {
    PlantOptions create = options_;
    if (IsFile()) create.plant += ";Mode=ReadWriteCreate";
    CreateDemoPlant(create, *DateTime::Parse(start));
  }
  bool IsFile() const { return options_.plant.starts_with("Provider"); }
  void SetSource(std::int32_t machine_id, const std::string& address, const std::string& mapping = "") {
    Plant plant(options_);
    const char* const kind = address.starts_with("http") ? "agent" : "adapter";
    plant.Run("delete from T_SFC_SOURCE where MACHINE_ID = ?", {machine_id});
    plant.Run(
        "insert into T_SFC_SOURCE (MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING) values (?, ?, "
        "?, ?)",
        {machine_id, kind, address, mapping});
  }
  CollectOptions Options() {
    CollectOptions collect;
    collect.plant = [this] { return options_; };
    collect.spool = folder_.path() / "spool";
    collect.pauses = {milliseconds(10), milliseconds(20)};
    collect.links.first_pause = collect.links.longest_pause = milliseconds(10);
    return collect;
  }
  fs::path SpoolFile() const { return folder_.path() / "spool" / "spool.db"; }

  // The queue, a line an event.
  std::string Queue() {
    Plant plant(options_);
    std::string text;
    for (const QueuedEvent& event : ReadQueue(plant))
      Append(text, event.machine_id, " ", event.time.substr(11), " ", event.Name(),
             event.param.empty() ? "" : " " + event.param, "\n");
    return text;
  }
  // Runs the tool to its end, on the plant. Returns what it said, its exit status behind that.
  std::string Tool(std::vector<std::string> arguments, const std::string& input = "/dev/null") {
    arguments.insert(arguments.begin() + 1, ToText(folder_.path() / "plant.db"));
    const fs::path output = folder_.path() / "output";
    fs::remove(output);
    const int status = Process(std::move(arguments), output.string(), input).Wait();
    std::ifstream said(output);
    return Concat(std::string{std::istreambuf_iterator<char>(said), {}}, "-> ", WEXITSTATUS(status), "\n");
  }
  std::int64_t Number(const std::string& sql) {
    Plant plant(options_);
    return plant.Run(sql).at(0, 0).ToInt32Or(0);
  }
  bool Waits(std::int64_t events) {
    Plant plant(options_);
    return Until(
        [&] { return plant.Run("select count(*) from T_SFC_MDC_LOG").at(0, 0).ToInt32() == events; });
  }

  TemporaryFolder folder_;
  PlantOptions options_;
};

}  // namespace kx::tool
