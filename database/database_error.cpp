#include "database/database_error.h"

#include <utility>

namespace kx {

// An error text that is empty would read as success.
DatabaseError::DatabaseError(std::string description, ErrorCategory category, std::int64_t native_code,
                             std::string sqlstate)
    : description_(description.empty() ? "Unspecified error" : std::move(description)),
      category_(category),
      native_code_(native_code),
      sqlstate_(std::move(sqlstate)) {}

DatabaseError NoCurrentRowError() {
  return DatabaseError("Either BOF or EOF is true, or the current record has been deleted.");
}

DatabaseError InvalidUseOfNullError() { return DatabaseError("Invalid use of Null"); }

DatabaseError OverflowError() { return DatabaseError("Overflow"); }

DatabaseError TypeMismatchError() { return DatabaseError("Type mismatch"); }

DatabaseError ClosedError() { return DatabaseError("Operation is not allowed when the object is closed."); }

DatabaseError RowGoneError() {
  return DatabaseError(
      "Row cannot be located for updating. Some values may have been changed since it was last read.");
}

DatabaseError UnknownProviderError() {
  return DatabaseError("Provider cannot be found. It may not be properly installed.");
}

DatabaseError TransactionEndedError() {
  return DatabaseError("The transaction was ended by the database and must be rolled back.",
                       ErrorCategory::kTransactionEnded);
}

// A work that may be done must not be repeated unseen.
DatabaseError UnknownOutcomeError() {
  return DatabaseError(
      "The link to the database was lost during the commit: the outcome of the commit is unknown.",
      ErrorCategory::kUnknownOutcome, 0, "08007");
}

DatabaseError NulInStatementError() {
  return DatabaseError("The statement holds a NUL character.", ErrorCategory::kNoStatement);
}

DatabaseError NulInTextError() {
  return DatabaseError("A text holds a NUL character.", ErrorCategory::kNoStatement);
}

DatabaseError OpenApostropheError() {
  return DatabaseError("Syntax error: a text in the statement has an apostrophe that is not doubled.",
                       ErrorCategory::kNoStatement, 0, "42000");
}

DatabaseError NotOneStatementError() {
  return DatabaseError("The text is not exactly one statement.", ErrorCategory::kNoStatement, 0, "42000");
}

}  // namespace kx
