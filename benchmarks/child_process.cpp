#include "benchmarks/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace kx::bench {

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
  std::array<int, 2> in{}, out{};
  if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  id_ = fork();
  if (id_ < 0) throw std::runtime_error("no new process");
  if (id_ == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  in_ = fdopen(in[1], "w");
  out_ = fdopen(out[0], "r");
}

ChildProcess::~ChildProcess() {
  std::fclose(in_);
  std::fclose(out_);
  waitpid(id_, nullptr, 0);
}

void ChildProcess::WriteLine(const std::string& line) {
  std::fputs((line + "\n").c_str(), in_);
  std::fflush(in_);
}

std::string ChildProcess::ReadLine() {
  std::string line;
  for (int c = std::fgetc(out_); c != '\n'; c = std::fgetc(out_)) {
    if (c == EOF) throw std::runtime_error("a program of the benchmark ended early");
    line.push_back(static_cast<char>(c));
  }
  return line;
}

}  // namespace kx::bench
