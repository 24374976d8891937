#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace kx {

// The numbered texts that the component hands to clients.
namespace message {
constexpr std::int32_t kRefreshFailed = 101;
constexpr std::int32_t kAppendNoTransaction = 102;
constexpr std::int32_t kLogonStart = 103;
constexpr std::int32_t kLogonEnd = 104;
constexpr std::int32_t kJobStart = 105;
constexpr std::int32_t kJobEnd = 106;
constexpr std::int32_t kOperationStart = 107;
constexpr std::int32_t kOperationEnd = 108;
constexpr std::int32_t kPartStart = 109;
constexpr std::int32_t kPartEnd = 110;
constexpr std::int32_t kSetupStart = 111;
constexpr std::int32_t kSetupEnd = 112;
constexpr std::int32_t kTeardownStart = 113;
constexpr std::int32_t kTeardownEnd = 114;
constexpr std::int32_t kMachineDowntimeStart = 115;
constexpr std::int32_t kMachineDowntimeEnd = 116;
constexpr std::int32_t kUserDowntimeStart = 117;
constexpr std::int32_t kUserDowntimeEnd = 118;
constexpr std::int32_t kCycleStart = 119;
constexpr std::int32_t kCycleEnd = 120;
constexpr std::int32_t kGoodPartCount = 121;
constexpr std::int32_t kScrappedPartCount = 122;
constexpr std::int32_t kCustomStart = 123;
constexpr std::int32_t kCustomEnd = 124;
constexpr std::int32_t kCustomBoth = 125;
}  // namespace message

// The text of message `id` with the markers %1 to %7 replaced, in that order: each non-empty substitution
// takes the place of the first occurrence of its marker. "###STRING RESOURCE ERROR###" for an unknown id.
std::string FormatResourceMessage(std::int32_t id,
                                  std::initializer_list<std::string_view> substitutions = {});

// The substitution alone, for any text.
std::string Substitute(std::string text, std::initializer_list<std::string_view> substitutions);

}  // namespace kx
