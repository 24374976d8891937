#pragma once

#include <string>
#include <string_view>

namespace kx {

// What a statement that the system builds may hold, and that it stays one: a text from outside never becomes
// part of the statement.

// `text` between apostrophes, exactly as it is. A text that would end there is an error, since it can never
// be in a statement: one with a NUL, or with apostrophes that do not all stand in adjacent pairs.
std::string Quoted(std::string_view text);

// `insert`, an INSERT of one row, as the batch that returns the row's key: the only text of several
// statements that an engine takes.
std::string IdentityBatch(std::string_view insert);

// Whether `sql` is one statement, or an identity batch around one. Comments, which nobody writes, could hide
// the end of a literal: a text with one is none.
bool IsOneStatement(std::string_view sql);

}  // namespace kx
