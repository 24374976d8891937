#pragma once

#include "KXData7.h"

namespace kx {

// IDispatch for the eight methods, by a table of them. Both answer as COM prescribes and raise nothing.

// The id of names[0], a method's name in any case. The names behind it would be arguments; they are unknown,
// since no argument can be given by its name.
HRESULT FindMethods(LPOLESTR* names, UINT count, DISPID* ids) noexcept;

// Calls a method with arguments of any type that can be converted to what the method takes. An error text may
// be given as a reference to a text, as a reference to a variant, which then takes the new text whatever it
// held, as a plain value or as missing, which both get nothing back. A method that fails makes
// DISP_E_EXCEPTION, with its text moved from the thread's error info to `exception`.
HRESULT InvokeMethod(_CKXData7Obj& object, DISPID id, WORD flags, DISPPARAMS* arguments, VARIANT* result,
                     EXCEPINFO* exception, UINT* bad_argument) noexcept;

}  // namespace kx
