#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "database/engine.h"
#include "database/odbc_handles.h"

namespace kx {

// An attribute that one driver alone knows.
struct DriverAttribute {
  SQLINTEGER attribute;
  SQLULEN value;
};

// A database management system that the ODBC engine knows, and all in which it differs from the others.
struct Dbms {
  std::string_view name;  // as the driver reports it
  SqlTarget target = SqlTarget::kNative;

  // What has to stand in the connection string, and how the driver reports back that it is in force.
  std::string_view connect_option = {};
  std::string_view connect_option_default = {};
  std::span<const DriverAttribute> attributes = {};
  // Run once after connecting; makes a statement wait for another session's lock for a second where the
  // system can be told so.
  std::string_view session_setup = {};
  // Set that wait to 10 ms, and back; empty where it cannot be set.
  std::string_view brief_lock_wait = {};
  std::string_view usual_lock_wait = {};
  // Run after a statement that failed, before any other one: puts back what a batch may have left set, and
  // asks how many transactions are open.
  std::string_view session_check = {};
  // Seconds after which a statement is given up, so that a wait for a lock ends where no other limit can be
  // set; 0 for none.
  SQLULEN statement_timeout = 0;

  // What stands around an INSERT, and what then asks for the new key; without a query the INSERT returns it.
  // {key} and {sequence} are the names of the key column and of the table's sequence.
  std::string_view before_insert = {};
  std::string_view after_insert = {};
  std::string_view key_query = {};

  // What commits where the driver's own call would keep the server's warning to itself.
  std::string_view commit = {};
  // An expression, always true, that leaves the commit of its statement to the next one.
  std::string_view deferring_condition = {};
  // Whether a commit that failed for a lock left the transaction open.
  bool commit_can_be_repeated = false;
  // Whether date-times are stored as texts.
  bool time_as_text = false;
  // In UTF-16 units: a longer parameter goes as one of unlimited length, and a longer text is not taken.
  std::size_t longest_short_text = 4000;
  std::size_t longest_text = std::string_view::npos;

  // Beside the standard SQLSTATEs: native codes for a lock that another session holds, for a transaction that
  // the system rolled back or will not commit, and for a link that is lost.
  std::span<const std::int32_t> busy_codes = {};
  std::span<const std::int32_t> ended_codes = {};
  std::span<const std::int32_t> lost_codes = {};
};

// The system of a name, null when it is not known.
const Dbms* FindDbms(std::string_view name);

// `text` with {key} and {sequence} filled in for a table: the sequence of T_X is S_X.
std::string FillKeyNames(std::string_view text, std::string_view table, std::string_view key_column);

// What a failure means, by SQLSTATE and the system's own codes.
bool IsBusy(const Dbms& dbms, const OdbcFailure& failure);
bool EndsTransaction(const Dbms& dbms, const OdbcFailure& failure);
bool IsLinkLoss(const Dbms& dbms, const OdbcFailure& failure);

}  // namespace kx
