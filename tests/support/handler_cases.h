#pragma once

#include <string>
#include <string_view>

#include "database/text.h"
#include "tests/support/plant.h"

namespace kx::test {

// An event for each handler, in a state of the plant where it has its full effect.
struct HandlerCase {
  const char* before;
  const char* event;
  const char* message;  // how its errors begin
  // How many transactions commit before the last and stay: an automatic part start or end, the job before it.
  int stay = 0;
  bool keeps_row = true;      // a logon end goes whatever happens
  bool parts_by_job = false;  // the option that jobs start and end their part
};

inline constexpr HandlerCase kHandlers[] = {
    {"07:00 logon start anna", "08:00 logon start bert", "Logon Start"},
    {"07:00 logon start anna", "08:00 logon end", "", 0, false},
    {"07:00 job start J2", "08:00 job start X", "Job Start"},
    {"07:00 job start J2", "08:00 job end", "Job End"},
    {"07:00 cycle start", "08:00 part start P1", "Part Start"},
    {"07:00 cycle start", "08:00 part end", "Part End"},
    {"07:00 op start X", "08:00 op start O10", "Operation Start"},
    {"07:00 op start X", "08:00 op end", "Operation End"},
    {"07:00 down start D1; 07:10 userdown start", "08:00 setup start", "Setup Start"},
    {"07:00 setup start", "08:00 setup end", "Setup End"},
    {"07:00 down start D1", "08:00 teardown start", "Teardown Start"},
    {"07:00 teardown start", "08:00 teardown end", "Teardown End"},
    {"07:00 cycle start", "08:00 down start X", "Machine Downtime Start"},
    {"07:00 down start D2", "08:00 down end", "Machine Downtime End"},
    {"07:00 cycle start", "08:00 userdown start X", "User Downtime Start"},
    {"07:00 userdown start X", "08:00 userdown end", "User Downtime End"},
    {"07:00 part start P1; 07:10 setup start", "14:30 cycle start", "Cycle Start"},
    {"07:00 cycle start", "14:30 cycle end", "Cycle End"},
    {"07:00 part start P1", "08:00 good 3", "Good Part Count"},
    {"07:00 part start P1", "08:00 scrap 3.X", "Scrapped Part Count"},
    {"", "08:00 good 3", "Good Part Count", 1},
    {"", "08:00 cycle start", "Cycle Start", 1},
    {"07:00 job start J2", "08:00 job start J1", "Job Start", 1, true, true},
    {"07:00 job start J1", "08:00 job end", "Job End", 1, true, true},
    {"07:00 door start", "08:00 door start x", "Custom Start"},
    {"07:00 door start", "08:00 door end", "Custom End"},
    {"07:00 part start P1", "08:00 door both x", "Custom Both"},
};

// Puts the plant, which is as new, before the event, with the event queued.
inline void Prepare(Plant& plant, const HandlerCase& handler) {
  if (handler.parts_by_job) plant.Execute("update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 1");
  plant.Run(handler.before);
  plant.Queue(handler.event);
}

// Whether a handler may take its event off the queue without its effect after this statement failed: a logon
// end always, a cycle start at the machine downtime's event.
inline bool MayDrop(const HandlerCase& handler, std::string_view failed_sql) {
  return !handler.keeps_row || (handler.message == std::string_view("Cycle Start") &&
                                failed_sql.find("MACHINE_EVENT") != std::string_view::npos);
}

inline std::string Locked(const char* message) {
  return Concat(message, " failed because the database is currently locked.");
}

}  // namespace kx::test
