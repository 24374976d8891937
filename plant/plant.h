#pragma once

#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "database/connection.h"
#include "database/database_error.h"
#include "plant/events.h"

namespace kx::tool {

// What an operator is told, in one line.
struct ToolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What every command is given to find the plant and the component.
struct PlantOptions {
  std::string plant;    // a file name or a connection string
  std::string library;  // the component's file, empty: searched for
  std::int32_t dialect = 0;
  bool by_dnc = false;    // numbers are those of the DNC system, not internal ids
  std::string file = {};  // the plant file that named the plant, if one did
};

enum class OpenMode { kExisting, kCreate, kReadOnly };

// The connection string of a file of SQLite, whatever its name holds.
std::string FileConnectionString(std::string_view file);

// The connection string of a plant given as a file name or as a connection string.
std::string PlantConnectionString(std::string_view plant, OpenMode mode = OpenMode::kExisting);

// A machine and where it stands, as its current record says.
struct Machine {
  std::int32_t id;
  std::string name;  // "machine 3 (Mill 1)"
  std::int32_t dept_id;
  std::int32_t location_id;
  std::int32_t group_id;
};

struct Command {
  std::int32_t id;
  std::int32_t type_code;
};

// A plant database as the tool itself reads and writes it, beside the component. Raises DatabaseError.
class Plant {
 public:
  explicit Plant(const PlantOptions& options, OpenMode mode = OpenMode::kExisting);

  // Runs one statement in the engine's own SQL.
  Rows Run(std::string_view sql, std::initializer_list<Value> parameters = {}) {
    return db.ExecuteDirect(sql, {parameters.begin(), parameters.size()});
  }

  // What a number of an operator names. A ToolError when there is no such thing.
  std::int32_t FindId(std::string_view table, std::int32_t number);
  Machine FindMachine(std::int32_t number);
  // The command of an event: a custom one by its number, the first of its type otherwise.
  Command FindCommand(const NamedEvent& event);
  // The number by which an operator names a row, and which leads back to it. A ToolError when it has none.
  std::int32_t NumberOf(std::string_view table, std::int32_t id);

  Connection db;

 private:
  const bool by_dnc_;
  std::map<std::int32_t, Command> commands_of_type_;
};

// The name of the schema file of the plant's database, which under a native dialect is that of the dialect.
std::string_view SchemaName(const Plant& plant, std::int32_t dialect);

// Whether a statement failed because its table is not there.
bool IsMissingTable(const DatabaseError& error);

struct NewMachine {
  std::string name;
  std::optional<std::int32_t> dnc_number;
  std::int32_t dept_id = -1;
  std::int32_t location_id = -1;
  std::int32_t group_id = -1;
};

// Adds a machine with its first record, which is idle, in no shift, and booked on the day of `start`. Returns
// the machine's id.
std::int32_t AddMachine(Plant& plant, const NewMachine& machine, DateTime start);

// The plant time of seconds since 1970, by the time zone of the process.
DateTime PlantTime(std::time_t seconds);

// The clock of the plant's database.
DateTime DatabaseTime(Plant& plant, std::int32_t dialect);

// Raises a ToolError for a text that no statement can carry: an apostrophe, a NUL, no UTF-8.
void RequirePlainText(std::string_view text);

}  // namespace kx::tool
