#pragma once

#include <ctime>
#include <string>

namespace kx::tool {

// "12:03:01" in plant time.
std::string TimeOfDay(std::time_t moment);

// What a program that stays says, as the one line "12:03:01 text", with advice where there is any.
std::string ServiceLine(const std::string& text);

}  // namespace kx::tool
