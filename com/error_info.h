#pragma once

#include <string_view>

#include "KXData7.h"

namespace kx::com {

// The name of the class to clients that ask by name, and the source of its errors.
inline constexpr std::string_view kProgId = "KXData7.CKXData7Obj";

// Makes `description` the calling thread's error, for GetErrorInfo. Returns `result`.
HRESULT Fail(HRESULT result, std::string_view description) noexcept;

// Leaves the calling thread without an error. Returns S_OK.
HRESULT Succeed() noexcept;

}  // namespace kx::com
