#pragma once

#include <filesystem>

#include "KXData7.h"

namespace kx::com {

// What COM's systems do each in their own way.

// The file that this code was loaded from. A name without its version stays: it outlives an update.
std::filesystem::path OwnFile();

// Dispatches the window messages that wait for the calling thread; nothing where there are no windows.
void DispatchWindowMessages();

// Whether this system has type libraries.
bool HasTypeLibraries();

// The description of an interface or class in the library's own type library. The caller releases it.
// E_NOTIMPL where there are no type libraries.
HRESULT FindTypeInfo(REFGUID guid, ITypeInfo** info) noexcept;

}  // namespace kx::com
