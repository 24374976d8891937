#include "session/messages.h"

#include <array>

namespace kx {
namespace {

constexpr std::int32_t kFirstId = 101;

constexpr std::array<std::string_view, 25> kMessages = {
    "Refresh Machine Status failed.",
    "Append Item To Log failed because a transaction could not be started.",
    "Logon Start failed because the database is currently locked.",
    "Logon End failed because the database is currently locked.",
    "Job Start failed because the database is currently locked.",
    "Job End failed because the database is currently locked.",
    "Operation Start failed because the database is currently locked.",
    "Operation End failed because the database is currently locked.",
    "Part Start failed because the database is currently locked.",
    "Part End failed because the database is currently locked.",
    "Setup Start failed because the database is currently locked.",
    "Setup End failed because the database is currently locked.",
    "Teardown Start failed because the database is currently locked.",
    "Teardown End failed because the database is currently locked.",
    "Machine Downtime Start failed because the database is currently locked.",
    "Machine Downtime End failed because the database is currently locked.",
    "User Downtime Start failed because the database is currently locked.",
    "User Downtime End failed because the database is currently locked.",
    "Cycle Start failed because the database is currently locked.",
    "Cycle End failed because the database is currently locked.",
    "Good Part Count failed because the database is currently locked.",
    "Scrapped Part Count failed because the database is currently locked.",
    "Custom Start failed because the database is currently locked.",
    "Custom End failed because the database is currently locked.",
    "Custom Both failed because the database is currently locked.",
};

}  // namespace

std::string Substitute(std::string text, std::initializer_list<std::string_view> substitutions) {
  char digit = '1';
  for (const std::string_view substitution : substitutions) {
    const std::string marker = {'%', digit++};
    const std::size_t at = substitution.empty() ? std::string::npos : text.find(marker);
    if (at != std::string::npos) text.replace(at, marker.size(), substitution);
  }
  return text;
}

std::string FormatResourceMessage(std::int32_t id, std::initializer_list<std::string_view> substitutions) {
  if (id < kFirstId || id >= kFirstId + static_cast<std::int32_t>(kMessages.size())) {
    return "###STRING RESOURCE ERROR###";
  }
  return Substitute(std::string(kMessages[static_cast<std::size_t>(id - kFirstId)]), substitutions);
}

}  // namespace kx
