#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

namespace kx::bench {

// A program that runs beside the benchmark, talked to by lines. The destructor closes its input and waits for
// it to end.
class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& command);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  void WriteLine(const std::string& line);
  std::string ReadLine();  // an exception when the program has ended

 private:
  pid_t id_ = 0;
  std::FILE* in_ = nullptr;
  std::FILE* out_ = nullptr;
};

}  // namespace kx::bench
