#include <chrono>

#include "benchmarks/measures.h"
#include "database/text.h"
#include "mdclog/append.h"

namespace kx::bench {
namespace {

// A database that answers at once, so that what remains of an append is the component's own work.
class IdleEngine final : public Engine {
 public:
  SqlTarget target() const override { return SqlTarget::kNative; }
  Rows Execute(std::string_view, std::span<const Value>) override {
    return {std::vector<std::string>{"SYSDATE"}, {DateTime(2026, 1, 12, 6)}, 1};
  }
  std::int64_t Insert(std::string_view, std::span<const Value>, std::string_view, std::string_view) override {
    return 1;
  }
  void Begin() override { in_transaction_ = true; }
  void Commit() override { in_transaction_ = false; }
  void Rollback() override { in_transaction_ = false; }
  bool InTransaction() const override { return in_transaction_; }
  bool IsAlive() const override { return true; }

 private:
  bool in_transaction_ = false;
};

constexpr int kBatches = 1000;
constexpr int kCalls = 100;

template <class Call>
double NanosecondsOf(Call call) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kCalls; ++i) call();
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
  return time.count() / kCalls;
}

}  // namespace

void MeasureComCalls(Report& report) {
  TellProgress("calls through COM");
  const Host before = ProcessHost();
  ProcessHost().open_engine = [](const ConnectionString&, const Waiting&) {
    return std::make_unique<IdleEngine>();
  };
  Session session;
  test::Component component;
  std::string error;
  ConnectToDatabase(session, "Driver=idle", 0, error);
  component.Connect("Driver=idle", kxdata7::Dialect{0});
  ProcessHost() = before;

  bool appended = false;
  const auto in_cpp = [&] { appended = AppendItemToMDCLog(session, {1, 2, 3, 1, 113, "a part", 0}, error); };

  kxdata7::Bstr param = kxdata7::Bstr::FromUtf8("a part");
  kxdata7::Bstr error_text;
  VARIANT_BOOL done = VARIANT_FALSE;
  const auto by_vtable = [&] {
    component->AppendItemToMDCLog(1, 2, 3, 1, 113, param.get(), 0, error_text.inout(), &done);
  };

  // Four texts, two of them numbers, and four numbers, in reverse order.
  kxdata7::Bstr one = kxdata7::Bstr::FromUtf8("1");
  kxdata7::Bstr two = kxdata7::Bstr::FromUtf8("2");
  const auto number = [](LONG value) { return test::MakeVariant(VT_I4, value); };
  VARIANT arguments[] = {test::MakeVariant(VT_BSTR | VT_BYREF, error_text.inout()),
                         number(0),
                         test::MakeVariant(VT_BSTR, param.get()),
                         number(113),
                         number(1),
                         number(3),
                         test::MakeVariant(VT_BSTR, two.get()),
                         test::MakeVariant(VT_BSTR, one.get())};
  DISPID method = 0;
  std::u16string name = u"AppendItemToMDCLog";
  LPOLESTR names[] = {name.data()};
  component->GetIDsOfNames(IID_NULL, names, 1, 0, &method);
  HRESULT result = S_OK;
  const auto by_invoke = [&] {
    DISPPARAMS given{arguments, nullptr, static_cast<UINT>(std::size(arguments)), 0};
    kxdata7::Variant value;
    result = component->Invoke(method, IID_NULL, 0, DISPATCH_METHOD, &given, &value, nullptr, nullptr);
  };

  std::vector<double> cpp, vtable, invoke;
  for (int batch = 0; batch < kBatches; ++batch) {
    cpp.push_back(NanosecondsOf(in_cpp));
    vtable.push_back(NanosecondsOf(by_vtable));
    invoke.push_back(NanosecondsOf(by_invoke));
  }
  if (!appended || done != VARIANT_TRUE || result != S_OK) throw std::runtime_error("an append failed");
  const auto tell = [&](std::string measure, double goal, const std::vector<double>& times) {
    const double more = (Median(times) - Median(cpp)) / 1000;
    report.Add(std::move(measure), Concat("under ", Digits(goal, 1), " µs more than in C++"),
               Concat(Digits(more, 2), " µs (", Digits(Median(times) / 1000, 2), " µs; ",
                      Digits(Median(cpp) / 1000, 2), " µs)"),
               more < goal);
  };
  tell("a call through the vtable", 0.3, vtable);
  tell("a call through `Invoke` with four texts and four numbers", 2, invoke);
}

}  // namespace kx::bench
