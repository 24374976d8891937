#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>

#include "benchmarks/plants.h"

namespace kx::bench {

// A component that is connected to a plant and driven through its interface. Every call must succeed.
class ConnectedComponent {
 public:
  explicit ConnectedComponent(const std::string& connection) {
    if (!component_.Connect(connection, 0).done) throw std::runtime_error("cannot connect: " + connection);
  }

  // Works in the next event; the time that it took in nanoseconds.
  std::int64_t TimeNext() {
    return Time([&] { return component_->DoNextItemFromMDCLog(error_.inout(), &done_); });
  }
  // Queues a good part, or what else is left to be told of a machine.
  std::int64_t TimeAppend() {
    return Time([&] {
      return component_->AppendItemToMDCLog(1, 2, 3, 1, 113, param_.get(), 0, error_.inout(), &done_);
    });
  }
  // Asks how many events wait.
  std::int64_t TimeCount(LONG& count) {
    done_ = VARIANT_TRUE;
    return Time([&] { return component_->GetMDCLogCount(&count); });
  }

 private:
  template <class Call>
  std::int64_t Time(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    const HRESULT result = call();
    const std::chrono::nanoseconds time = std::chrono::steady_clock::now() - begin;
    if (result != S_OK || done_ != VARIANT_TRUE)
      throw std::runtime_error("a call failed: " + error_.ToUtf8());
    return time.count();
  }

  test::Component component_;
  kxdata7::Bstr error_;
  kxdata7::Bstr param_ = kxdata7::Bstr::FromUtf8("1");
  VARIANT_BOOL done_ = VARIANT_FALSE;
};

}  // namespace kx::bench
