#include "views/server.h"

#include <algorithm>
#include <boost/asio.hpp>
#include <boost/beast.hpp>
#include <condition_variable>
#include <deque>
#include <iostream>
#include <thread>

#include "database/text.h"
#include "plant/schema_version.h"
#include "plant/service_notify.h"
#include "plant/stop_signal.h"
#include "plant/trial.h"
#include "views/assets.h"
#include "views/board_cache.h"
#include "views/pages.h"
#include "views/report.h"

namespace kx::tool {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = net::ip::tcp;
using std::chrono::steady_clock;

// The bounds of the server.
constexpr std::size_t kMostConnections = 1'000;
constexpr std::uint32_t kMostHeaderBytes = 8 * 1024;
constexpr std::size_t kMostJobs = 16;  // reports that wait for their turn
constexpr std::chrono::seconds kRequestTime{10}, kIdleTime{30}, kAnswerTime{30};
constexpr std::chrono::milliseconds kFresh{1'000};  // how long a reading of the board serves
constexpr std::chrono::seconds kTrialAfter{20};     // how long an event stands at the head before it is tried
constexpr std::int64_t kMostTrialBytes = 256 << 20;  // a larger plant is not copied for a trial

// One thread with its own link to the plant, made anew when it was lost.
class Reader {
 public:
  using Job = std::function<void(Plant&)>;

  Reader(PlantOptions options, std::function<void(const std::string&)> on_error)
      : options_(std::move(options)), on_error_(std::move(on_error)), thread_([this] { Work(); }) {}
  ~Reader() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // False: too many wait. `failed` is called in place of the job's end when the database fails.
  bool Post(Job job, std::function<void(const std::string&)> failed) {
    {
      const std::lock_guard lock(mutex_);
      if (jobs_.size() >= kMostJobs) return false;
      jobs_.push_back({std::move(job), std::move(failed)});
    }
    wake_.notify_one();
    return true;
  }

 private:
  struct Posted {
    Job job;
    std::function<void(const std::string&)> failed;
  };

  void Work() {
    for (;;) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      if (stopping_) return;
      const Posted posted = std::move(jobs_.front());
      jobs_.pop_front();
      lock.unlock();
      try {
        if (!plant_) plant_ = std::make_unique<Plant>(options_, OpenMode::kReadOnly);
        posted.job(*plant_);
      } catch (const std::exception& error) {
        plant_.reset();
        on_error_(error.what());
        posted.failed(error.what());
      }
    }
  }

  const PlantOptions options_;
  const std::function<void(const std::string&)> on_error_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Posted> jobs_;
  bool stopping_ = false;
  std::unique_ptr<Plant> plant_;
  std::thread thread_;
};

// What is known of the event at the head of the queue: how long it has stood there, and what a trial said.
class HeadWatch {
 public:
  explicit HeadWatch(PlantOptions options) : options_(std::move(options)) {}

  // The error of a trial, made once for an event that stands; empty: none is known.
  std::string Tried(Plant& plant, std::int32_t row) {
    const auto now = steady_clock::now();
    if (row != row_) {
      row_ = row;
      since_ = now;
      tried_ = false;
      error_.clear();
    }
    if (tried_ || now - since_ < kTrialAfter || plant.db.target() != SqlTarget::kSqlite) return error_;
    tried_ = true;
    const Rows size = plant.Run("select page_count * page_size from pragma_page_count(), pragma_page_size()");
    if (size.at(0, 0).ToDouble() > static_cast<double>(kMostTrialBytes)) return error_;
    try {
      error_ = TrialError(options_, row).value_or("");
    } catch (const std::exception&) {
      // A trial that cannot be made says nothing of the event.
    }
    return error_;
  }

 private:
  const PlantOptions options_;
  std::int32_t row_ = -1;
  steady_clock::time_point since_;
  bool tried_ = false;
  std::string error_;
};

class Server {
 public:
  Server(const PlantOptions& plant, const ServeOptions& options);
  void Run();

  using Answer = std::function<void(Page)>;
  void Handle(const std::string& target, const Answer& answer);
  net::io_context io{1};
  std::size_t connections = 0;

 private:
  void Accept();
  void Tick();
  // Calls `then` once the board is fresh, or as fresh as it gets.
  void WithBoard(std::function<void()> then);
  void StartReading();
  DateTime Now(Plant& plant) const {
    return options_.now ? *options_.now : DatabaseTime(plant, plant_.dialect);
  }
  void Finish();
  void HandleBoard(std::string_view path, std::string_view target, const Answer& answer);
  void HandleReport(const std::string& target, const Answer& answer);

  const PlantOptions plant_;
  const ServeOptions options_;
  tcp::acceptor acceptor_{io};
  net::steady_timer tick_{io}, accept_again_{io};
  StopSignal stop_;
  ServiceNotify service_;
  BoardCache board_;
  HeadWatch head_;
  bool reading_ = false;
  steady_clock::time_point read_at_{}, reading_since_{};
  std::vector<std::function<void()>> waiting_;
  // The last members: their threads end before anything that they use.
  Reader board_reader_, report_reader_;
};

// One connection: requests one after the other, each with its time limit.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Server& server, tcp::socket socket) : server_(server), stream_(std::move(socket)) {
    ++server_.connections;
  }
  ~Session() { --server_.connections; }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Read(std::chrono::seconds limit = kRequestTime) {
    parser_.emplace();
    parser_->header_limit(kMostHeaderBytes);
    parser_->body_limit(0);
    stream_.expires_after(limit);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](beast::error_code error, std::size_t) { self->OnRead(error); });
  }

 private:
  void OnRead(beast::error_code error) {
    if (error == http::error::header_limit || error == http::error::body_limit) {
      keep_alive_ = head_only_ = false;
      return Write(PlainPage(error == http::error::header_limit ? 431 : 413, "The request is too large."));
    }
    if (error == http::error::end_of_stream || error == net::error::eof || error == beast::error::timeout ||
        error == net::error::operation_aborted || error == net::error::connection_reset)
      return Close();
    if (error) {
      keep_alive_ = head_only_ = false;
      return Write(PlainPage(400, "The request cannot be read."));
    }
    const auto& request = parser_->get();
    keep_alive_ = request.keep_alive();
    head_only_ = request.method() == http::verb::head;
    if (!head_only_ && request.method() != http::verb::get)
      return Write(PlainPage(405, "Only GET and HEAD are served."));
    stream_.expires_never();
    server_.Handle(std::string(request.target()),
                   [self = shared_from_this()](Page page) { self->Write(std::move(page)); });
  }

  void Write(Page page) {
    auto response =
        std::make_shared<http::response<http::string_body>>(static_cast<http::status>(page.status), 11);
    response->set(http::field::content_type, page.type);
    response->set(http::field::cache_control, "no-store");
    response->set(
        "Content-Security-Policy",
        "default-src 'none'; style-src 'self'; script-src 'self'; connect-src 'self'; img-src 'self'; "
        "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response->set("X-Content-Type-Options", "nosniff");
    response->set("Referrer-Policy", "no-referrer");
    if (page.status == 405) response->set(http::field::allow, "GET, HEAD");
    if (page.status == 503) response->set(http::field::retry_after, "5");
    response->keep_alive(keep_alive_);
    if (head_only_) {
      response->content_length(page.body.size());
    } else {
      response->body() = std::move(page.body);
      response->prepare_payload();
    }
    stream_.expires_after(kAnswerTime);
    // The head of an answer to HEAD says the length of what GET would give.
    auto serializer = std::make_shared<http::response_serializer<http::string_body>>(*response);
    const auto done = [self = shared_from_this(), response, serializer](beast::error_code error,
                                                                        std::size_t) {
      if (error || !self->keep_alive_) return self->Close();
      self->Read(kIdleTime);
    };
    if (head_only_) return http::async_write_header(stream_, *serializer, done);
    http::async_write(stream_, *serializer, done);
  }

  void Close() {
    beast::error_code ignored;
    stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
  }

  Server& server_;
  beast::tcp_stream stream_;
  beast::flat_buffer buffer_{kMostHeaderBytes + 1024};
  std::optional<http::request_parser<http::empty_body>> parser_;
  bool keep_alive_ = false, head_only_ = false;
};

tcp::endpoint ParseEndpoint(const std::string& listen) {
  const std::size_t colon = listen.rfind(':');
  std::string host = listen.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  beast::error_code error;
  const auto address = net::ip::make_address(host, error);
  unsigned port = 0;
  const char* const end = listen.data() + listen.size();
  if (error || colon == std::string::npos ||
      std::from_chars(listen.data() + colon + 1, end, port).ptr != end || port > 65535)
    throw ToolError(Concat("\"", listen, "\" is no address and port, such as 127.0.0.1:8080 or [::1]:8080"));
  return {address, static_cast<std::uint16_t>(port)};
}

Server::Server(const PlantOptions& plant, const ServeOptions& options)
    : plant_(plant),
      options_(options),
      head_(plant),
      board_reader_(plant, [](const std::string&) {}),
      report_reader_(plant, [](const std::string&) {}) {
  const tcp::endpoint endpoint = ParseEndpoint(options.listen);
  beast::error_code error;
  acceptor_.open(endpoint.protocol(), error);
#ifndef _WIN32
  if (!error) acceptor_.set_option(net::socket_base::reuse_address(true), error);
#endif
  if (!error) acceptor_.bind(endpoint, error);
  if (!error) acceptor_.listen(net::socket_base::max_listen_connections, error);
  if (error) throw ToolError(Concat("cannot listen on ", options.listen, ": ", error.message()));
}

void Server::Run() {
  const tcp::endpoint at = acceptor_.local_endpoint();
  std::cout << "The board is at http://" << at << "/" << std::endl;
  Accept();
  Tick();
  service_.Ready();
  io.run();
  service_.Stopping();
}

void Server::Accept() {
  acceptor_.async_accept([this](beast::error_code error, tcp::socket socket) {
    if (error == net::error::operation_aborted) return;
    if (error) {
      // Too many open files: others close meanwhile.
      accept_again_.expires_after(std::chrono::milliseconds(100));
      return accept_again_.async_wait([this](beast::error_code) { Accept(); });
    }
    if (connections < kMostConnections) std::make_shared<Session>(*this, std::move(socket))->Read();
    Accept();
  });
}

void Server::Tick() {
  if (stop_.requested()) return io.stop();
  service_.Alive();
  // A database that does not answer keeps nobody waiting.
  if (reading_ && steady_clock::now() - reading_since_ > std::chrono::seconds(5)) {
    board_.SetFailure("no answer");
    Finish();
  }
  tick_.expires_after(std::chrono::milliseconds(200));
  tick_.async_wait([this](beast::error_code) { Tick(); });
}

void Server::Finish() {
  for (const auto& then : std::exchange(waiting_, {})) then();
}

void Server::StartReading() {
  reading_ = true;
  reading_since_ = steady_clock::now();
  const auto end = [this] {
    net::post(io, [this] {
      reading_ = false;
      read_at_ = steady_clock::now();
      Finish();
    });
  };
  board_reader_.Post(
      [this, end](Plant& plant) {
        const std::string name = options_.name.empty() ? PlantName(plant, plant_.plant) : options_.name;
        board_.Set(ReadBoard(plant, {name, options_.department}, Now(plant),
                             [&](std::int32_t row) { return head_.Tried(plant, row); }));
        end();
      },
      [this, end](const std::string& error) {
        board_.SetFailure(error);
        end();
      });
}

void Server::WithBoard(std::function<void()> then) {
  const auto age = steady_clock::now() - read_at_;
  if (age < kFresh) return then();
  const bool was_reading = reading_;
  if (!reading_) StartReading();
  // A reading that takes long serves nobody; what is known does.
  if (was_reading && steady_clock::now() - reading_since_ > std::chrono::seconds(5)) return then();
  waiting_.push_back(std::move(then));
}

void Server::HandleBoard(std::string_view path, std::string_view target, const Answer& answer) {
  const std::string failure = board_.Failure();
  if (path == "/metrics") return answer({200, "text/plain; version=0.0.4; charset=utf-8", board_.Metrics()});
  if (path == "/healthz")
    return answer(PlainPage(failure.empty() ? 200 : 503, failure.empty() ? "ok" : failure));
  if (!board_.known())
    return answer(PlainPage(503, failure.empty() ? "The plant has not been read yet." : failure));
  if (path == "/live") {
    std::int64_t since = 0;
    const std::size_t equals = target.find("since=");
    if (equals != std::string_view::npos)
      std::from_chars(target.data() + equals + 6, target.data() + target.size(), since);
    return answer({200, "application/json", board_.Changes(since)});
  }
  if (path == "/api/v1/board") return answer({200, "application/json", board_.Json()});
  answer({200, "text/html; charset=utf-8", board_.Page()});
}

void Server::HandleReport(const std::string& target, const Answer& answer) {
  const auto post = [this, answer](Page page) {
    net::post(io, [answer, page = std::move(page)]() mutable { answer(std::move(page)); });
  };
  const bool taken = report_reader_.Post(
      [this, post, target](Plant& plant) {
        const std::string name = options_.name.empty() ? PlantName(plant, plant_.plant) : options_.name;
        post(ReportAnswer(plant, name, Now(plant), target));
      },
      [post](const std::string& error) {
        post(PlainPage(503, "The plant’s database does not answer: " + error));
      });
  if (!taken) answer(PlainPage(503, "Too many reports are being made; try again in a moment."));
}

void Server::Handle(const std::string& target, const Answer& answer) {
  const std::string path = target.substr(0, target.find('?'));
  if (path == "/board.css") return answer({200, "text/css", Concat(Asset("colors.css"), Asset("board.css"))});
  if (path == "/report.css")
    return answer({200, "text/css", Concat(Asset("colors.css"), Asset("report.css"))});
  if (path == "/board.js") return answer({200, "text/javascript", std::string(Asset("board.js"))});
  if (path == "/icon.svg") return answer({200, "image/svg+xml", std::string(Asset("icon.svg"))});
  if (IsReportTarget(path)) return HandleReport(target, answer);
  if (path == "/" || path == "/live" || path == "/api/v1/board" || path == "/metrics" || path == "/healthz")
    return WithBoard([this, path, target, answer] { HandleBoard(path, target, answer); });
  answer(PlainPage(404, "There is no such page; the board is at /"));
}

}  // namespace

int Serve(const PlantOptions& plant, const ServeOptions& options) {
  ServeOptions checked = options;
  {
    Plant trial(plant, OpenMode::kReadOnly);  // a plant that cannot be opened is told at once
    if (options.department) checked.department = trial.FindId("T_SFC_DEPT", *options.department);
  }
  Server server(plant, checked);
  server.Run();
  return 0;
}

}  // namespace kx::tool
