#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// What came of a handler's work inside its transaction.
enum class Outcome {
  kDone,           // commit
  kNotApplicable,  // roll back, no error: the event changes nothing
  kLocked,         // roll back, the handler's own message
};

using Work = std::function<Outcome()>;

// Runs a handler's body under its error label: a database error becomes the error text and the result False.
bool WithErrorLabel(std::string& error, const std::function<bool()>& body);

// Runs `work` in a transaction. Where none can be begun or committed, or the database is busy, the error text
// is the message. Other errors leave it rolled back and pass on.
bool InTransaction(Session& session, std::int32_t message_id, std::string& error, const Work& work);

// The frame of a handler that is all transaction: error text cleared, error label, transaction.
bool RunHandler(Session& session, std::int32_t message_id, std::string& error, const Work& work);

// Stops the machine's running events of these command types, in order. False: one could not be stopped.
bool StopEvents(Session& session, const MdcLogItem& item, std::initializer_list<std::int32_t> command_types);

// Records an event of a command type as running from the item's time on.
void StartEvent(Session& session, const MdcLogItem& item, std::int32_t command_type, std::string_view param);

}  // namespace kx
