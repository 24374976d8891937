#pragma once

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "database/text.h"
#include "inputs/shdr_line.h"
#include "tests/support/agent_documents.h"

namespace kx::tool {

template <class Condition>
bool Until(Condition condition) {
  for (int i = 0; i < 6'000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A server on loopback with a thread of its own, which alone touches what it serves.
class Loopback {
 public:
  using Socket = std::shared_ptr<boost::asio::ip::tcp::socket>;

  // `serve` is called with every connection.
  explicit Loopback(std::function<void(const Socket&)> serve) : serve_(std::move(serve)) {}
  ~Loopback() { Stop(); }
  Loopback(const Loopback&) = delete;
  Loopback& operator=(const Loopback&) = delete;

  std::string address() const { return Concat("127.0.0.1:", acceptor_.local_endpoint().port()); }
  template <class Work>
  auto Do(Work work) {
    return boost::asio::post(io_, boost::asio::use_future(std::move(work))).get();
  }

  std::atomic<int> connections = 0;  // so far

 protected:
  static void Write(const Socket& socket, const std::string& text) {
    boost::system::error_code ignored;
    boost::asio::write(*socket, boost::asio::buffer(text), ignored);
  }
  static std::string ReadRequest(const Socket& socket) {
    boost::system::error_code ignored;
    std::string request;
    boost::asio::read_until(*socket, boost::asio::dynamic_buffer(request), "\r\n\r\n", ignored);
    return request;
  }
  // Once what `serve` uses is there.
  void Start() {
    Accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  // Before it is gone.
  void Stop() {
    io_.stop();
    if (thread_.joinable()) thread_.join();
  }

  boost::asio::io_context io_;

 private:
  void Accept() {
    acceptor_.async_accept([this](auto error, boost::asio::ip::tcp::socket socket) {
      if (error) return;
      serve_(std::make_shared<boost::asio::ip::tcp::socket>(std::move(socket)));
      ++connections;
      Accept();
    });
  }

  const std::function<void(const Socket&)> serve_;
  boost::asio::ip::tcp::acceptor acceptor_{io_, {boost::asio::ip::make_address("127.0.0.1"), 0}};
  std::thread thread_;
};

// Answers everything alike.
class WebServer : public Loopback {
 public:
  explicit WebServer(std::string answer)
      : Loopback([this](const Socket& socket) {
          ReadRequest(socket);
          Write(socket, answer_);
        }),
        answer_(std::move(answer)) {
    Start();
  }
  ~WebServer() { Stop(); }

 private:
  const std::string answer_;
};

// Adapters on one port: what is sent goes to all that are connected.
class Adapter : public Loopback {
 public:
  using milliseconds = std::chrono::milliseconds;

  // `opening` is what a connection hears first.
  explicit Adapter(std::function<std::string()> opening = [] { return std::string(); })
      : Loopback([this](const Socket& socket) {
          sockets_.push_back(socket);
          Write(socket, opening_());
          Watch(socket);
        }),
        opening_(std::move(opening)) {
    Start();
  }
  ~Adapter() { Stop(); }

  void Send(const std::string& text) {
    Do([this, text] { SendNow(text); });
  }
  void Disconnect() {
    Do([this] {
      for (const auto& socket : sockets_) socket->close();
      sockets_.clear();
    });
  }
  // Calls `step` again and again on the adapter's thread, and sends what it returns, while somebody hears it.
  void SendEach(milliseconds pause, std::function<std::string()> step) {
    Do([this, pause, step = std::move(step)] {
      steps_ = true;
      StepLater(pause, step);
    });
  }
  void SendNoMore() {
    Do([this] { steps_ = false; });
  }
  bool IsHeard() {
    return Do([this] { return !sockets_.empty(); });
  }

 private:
  void SendNow(const std::string& text) {
    for (const auto& socket : sockets_) Write(socket, text);
  }
  // Takes what comes, heartbeats, until the other side is gone.
  void Watch(const Socket& socket) {
    socket->async_read_some(boost::asio::buffer(piece_), [this, socket](auto error, std::size_t) {
      if (!error) return Watch(socket);
      std::erase(sockets_, socket);
    });
  }
  void StepLater(milliseconds pause, const std::function<std::string()>& step) {
    timer_.expires_after(pause);
    timer_.async_wait([this, pause, step](auto error) {
      if (error || !steps_) return;
      if (!sockets_.empty()) SendNow(step());
      StepLater(pause, step);
    });
  }

  const std::function<std::string()> opening_;
  boost::asio::steady_timer timer_{io_};
  bool steps_ = false;
  std::vector<Socket> sockets_;
  std::array<char, 4096> piece_{};
};

// An agent of one device, with what an adapter's lines tell it. A stream ends when it has told all.
class RecordedAgent : public Loopback {
 public:
  RecordedAgent() : Loopback([this](const Socket& socket) { Serve(socket); }) { Start(); }
  ~RecordedAgent() { Stop(); }

  void Tell(const std::vector<std::string>& lines) {
    Do([&] {
      for (const std::string& line : lines) Take(line);
    });
  }
  // What holds stays known; numbers begin anew.
  void Restart() {
    Do([this] {
      ++instance_;
      asked_for_ = 0;
      told_.clear();
      for (auto& [key, last] : last_) told_.push_back(last);
    });
  }
  bool AllIsRead() {
    return Do([this] { return asked_for_ == Next(); });
  }

 private:
  struct Observation {
    std::string time, key, value;
  };

  void Take(const std::string& line) {
    if (line.starts_with('*')) return;
    const std::vector<std::string> fields = SplitFields(line);
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) {
      told_.push_back({fields[0], fields[i], fields[i + 1]});
      last_[fields[i]] = told_.back();
    }
  }
  std::size_t Next() const { return told_.size() + 1; }

  void Serve(const Socket& socket) {
    const std::string request = ReadRequest(socket);
    constexpr std::string_view kFrom = "/sample?from=";
    const std::size_t from = request.find(kFrom);
    std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: ";
    if (from == std::string::npos) {
      Append(answer, "text/xml\r\n\r\n", Current());
    } else {
      answer += "multipart/x-mixed-replace;boundary=b\r\n\r\n";
      constexpr std::size_t kObservations = 7;  // a document; lines are cut by it
      std::size_t next = std::stoul(request.substr(from + kFrom.size()));
      do {
        const std::string document = Sample(next, std::min(next + kObservations, Next()));
        Append(answer, "--b\r\nContent-length: ", document.size(), "\r\n\r\n", document, "\r\n");
        asked_for_ = next;
        next += kObservations;
      } while (next < Next());
    }
    Write(socket, answer);
  }

  std::string Current() const {
    std::map<std::string, std::size_t> last;
    for (std::size_t i = 0; i < told_.size(); ++i) last[told_[i].key] = i;
    std::vector<std::size_t> numbers;
    for (const auto& [key, number] : last) numbers.push_back(number);
    return Describe(numbers, Next());
  }
  std::string Sample(std::size_t first, std::size_t next) const {
    std::vector<std::size_t> numbers;
    for (std::size_t i = first; i < next; ++i) numbers.push_back(i - 1);
    return Describe(numbers, next);
  }
  // By components, as agents do, not in the order in which it was told.
  std::string Describe(const std::vector<std::size_t>& numbers, std::size_t next) const {
    std::string controller, path;
    for (const std::size_t i : numbers) {
      const std::string element = ElementOf(told_[i].key);
      const bool is_controllers = element == "Availability" || element == "EmergencyStop";
      (is_controllers ? controller : path) +=
          ToldAt(static_cast<int>(i) + 1, told_[i].time, element, told_[i].key, told_[i].value);
    }
    return Document(instance_, 1, static_cast<int>(next),
                    Device("Cell", Component("Path", "p", path) + Component("Controller", "c", controller)),
                    static_cast<int>(told_.size()));
  }
  static std::string ElementOf(const std::string& key) {
    for (const auto& [ending, element] : {std::pair("avail", "Availability"),
                                          {"execution", "Execution"},
                                          {"program", "Program"},
                                          {"partcount", "PartCount"},
                                          {"part_count", "PartCount"},
                                          {"estop", "EmergencyStop"},
                                          {"fmode", "FunctionalMode"}}) {
      if (key.ends_with(ending)) return element;
    }
    return "Message";
  }

  int instance_ = 1;
  std::vector<Observation> told_;
  std::map<std::string, Observation> last_;
  std::size_t asked_for_ = 0;
};

}  // namespace kx::tool
