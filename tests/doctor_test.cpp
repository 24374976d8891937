// What the tool's doctor finds in a plant, and what it repairs.
#include "database/ascii.h"
#include "tests/support/tool_fixture.h"

namespace kx::tool {
namespace {

class DoctorTest : public EveryPlantTest {
 protected:
  // The doctor's lines that are not "ok".
  std::vector<std::string> Findings(const std::string& arguments = "") {
    const Result result = Run("doctor " + plant_ + arguments);
    EXPECT_EQ(result.errors, "");
    std::vector<std::string> findings;
    bool healthy = true;
    for (const std::string& line : Lines(result.output)) {
      if (!line.starts_with("ok ")) findings.push_back(line);
      if (line == "ok       connection") healthy = true;  // what came before was repaired
      healthy = healthy && (line.starts_with("ok ") || line.starts_with("note "));
    }
    EXPECT_EQ(result.status, healthy ? 0 : 1) << result.output;
    EXPECT_GT(Lines(result.output).size(), 0U);
    return findings;
  }

  // Does the damage to a healthy plant. The doctor's findings must begin with these texts, in their order.
  void ExpectFindings(const std::vector<std::string>& damages, const std::vector<std::string>& expected) {
    UseNewPlant();
    Do("create " + plant_ + " --demo");
    for (const std::string& damage : damages) Query(damage);
    const auto findings = Findings();
    bool same = findings.size() == expected.size();
    for (std::size_t i = 0; same && i < expected.size(); ++i) same = findings[i].starts_with(expected[i]);
    EXPECT_TRUE(same) << ::testing::PrintToString(findings) << ::testing::PrintToString(expected);
  }
};
INSTANTIATE_TEST_SUITE_P(Plants, DoctorTest, ::testing::Values("sqlite", "postgresql"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(DoctorTest, LeavesAHealthyPlantAsItIs) {
  Do("create " + plant_);
  EXPECT_EQ(Findings(), std::vector<std::string>{
                            "failed   next shift: outer joins: there is no shift, and no event can be worked "
                            "in without one"});
  Do("create " + plant_ + " --demo");
  Do("append " + plant_ + " --machine 1 --event good");
  for (const char* dialect : {"oracle", "access", "sqlserver"})
    EXPECT_EQ(Findings(std::string(" --dialect ") + dialect), std::vector<std::string>());
  EXPECT_EQ(Query("select count(*) from T_SFC_EVENT").ToInt32(), 0);
  EXPECT_EQ(DoCsv("queue " + plant_).size(), 1U);

  if (embedded()) return;  // its clock is the machine's
  environment_ = "TZ=UTC PGTZ=Asia/Tokyo";
  const auto findings = Findings();
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_TRUE(findings[0].starts_with("note     clock: ")) << findings[0];
}

TEST_P(DoctorTest, FindsEveryKindOfDamage) {
  ExpectFindings({"delete from T_SFC_OPTION where OPTION_CODE = 1",
                  "update T_SFC_OPTION set BOOL_VAL = null where OPTION_CODE = 5",
                  "update T_SFC_MACHINE_DATA set STOP_TIME = START_TIME where MACHINE_ID = 1",
                  "insert into T_SFC_MACHINE_DATA (MACHINE_ID) values (2)",
                  "update T_SFC_MACHINE set MACHINE_DATA_ID = 1 where MACHINE_ID = 3"},
                 {"missing  option (2, 1), and job events fail", "missing  value of option (2, 5)",
                  "missing  open record of machine 1", "failed   machine 2 has 2 open records",
                  "failed   machine 3 points at record 1"});
  ExpectFindings(
      {"drop table T_SFC_MDC_LOG_ASIDE", "alter table T_SFC_MACHINE drop column STATUS_DATE",
       "alter table T_SFC_EVENT drop column PARAM1", "alter table T_SFC_SHIFT drop column SUN_INTERVAL_ID"},
      {"missing  column of T_SFC_MACHINE; add it as STATUS_DATE ",
       "missing  table T_SFC_MDC_LOG_ASIDE; \"kxdata7 upgrade\" adds it",
       "missing  column of T_SFC_EVENT; add it as PARAM1 TEXT",
       "missing  column of T_SFC_SHIFT; add it as SUN_INTERVAL_ID INTEGER", "failed   master data",
       "failed   next shift", "failed   new row"});
  ExpectFindings(
      {"drop table T_SFC_MACHINE_SHIFT", "drop table T_SFC_OPTION"},
      {"missing  table T_SFC_MACHINE_SHIFT", "missing  table T_SFC_OPTION", "failed   options",
       "failed   master data", "failed   current shift", "failed   next shift", "failed   cycle lock"});
  ExpectFindings({"drop table T_KXES_PTYPE"}, {"missing  table T_KXES_PTYPE", "failed   component"});
}

TEST_P(DoctorTest, RepairsWhatIsCertain) {
  Do("create " + plant_ + " --demo");
  Query("delete from T_SFC_OPTION where OPTION_CODE = 4");
  Query("update T_SFC_MACHINE set MACHINE_DATA_ID = 1 where MACHINE_ID = 3");
  EXPECT_EQ(Findings().size(), 2U);
  const auto findings = Findings(" --repair");
  ASSERT_EQ(findings.size(), 4U);
  EXPECT_EQ(findings[1], "repair   add option (2, 4) with 0");
  EXPECT_EQ(findings[3], "repair   let machine 3 point at record 3");
  EXPECT_EQ(Findings(), std::vector<std::string>());
}

// A change that counts no rows, and a text that does not come back: here by triggers.
TEST_P(DoctorTest, FindsWhatTheDatabaseChanges) {
  if (!embedded()) GTEST_SKIP();
  ExpectFindings(
      {"create trigger t before update of STOP_TIME on T_SFC_EVENT begin select raise(ignore); end"},
      {"note     trigger t on T_SFC_EVENT: it may refuse or change",
       "failed   new row by its key, changed, with a text of any language, rolled back: Row cannot"});
  ExpectFindings({"create trigger t after update of PARAM1 on T_SFC_EVENT begin update T_SFC_EVENT set "
                  "PARAM1 = '?' where EVENT_ID = new.EVENT_ID; end"},
                 {"note     trigger t on T_SFC_EVENT: it may refuse or change",
                  "failed   new row by its key, changed, with a text of any language, rolled back: a text"});
}

// Each is named: by the command that it keeps from its work, and by the doctor.
TEST_P(DoctorTest, NamesWhatIsWrongWithTables) {
  const std::string bad_date = embedded() ? "31.12.2026" : "infinity";
  const auto case_of = [](const std::string& name) { return embedded() ? name : ToLowerAscii(name); };
  const std::string log = case_of("T_SFC_MDC_LOG");

  ExpectFindings(
      {"update T_SFC_MACHINE_DATA set START_TIME = '" + bad_date + "' where MACHINE_ID = 1",
       "alter table T_SFC_JOB rename to JOBS", "create view T_SFC_JOB as select * from JOBS"},
      {"note     " + case_of("T_SFC_JOB") + " is a view; the component only reads it",
       "failed   row 1 of T_SFC_MACHINE_DATA: START_TIME is \"" + bad_date + "\", which is no date"});
  if (embedded()) {  // elsewhere the driver makes a late date of it
    const std::string day =
        Query("select CHART_DATE from T_SFC_MACHINE_DATA where MACHINE_ID = 1").ToText().substr(0, 10);
    ExpectError("report " + plant_ + " --day " + day, "\"kxdata7 doctor\" names it");
    Do("append " + plant_ + " --machine 1 --event good");
    ExpectError("process " + plant_, "\"kxdata7 doctor\" names it");
  }

  ExpectFindings({"alter table T_SFC_MDC_LOG drop column PARAM1",
                  "alter table T_SFC_MDC_LOG add column PARAM1 TEXT generated always as ('x')" +
                      std::string(embedded() ? "" : " stored")},
                 {"failed   column " + case_of("PARAM1") + " of " + log + " is computed by the database"});
  ExpectError("append " + plant_ + " --machine 1 --event good", case_of("PARAM1"));

  ExpectFindings(
      {"alter table T_SFC_MDC_LOG rename to Q",
       "create view T_SFC_MDC_LOG as select MDC_LOG_ID, COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, "
       "MACHINE_ID, COMMAND_TIME_CODE, TIME_STAMP, PARAM1 from Q group by 1"},
      {"failed   " + log + " is a view, and nothing can be queued"});
  ExpectError("append " + plant_ + " --machine 1 --event good", "view");
}

TEST_P(DoctorTest, SaysWhatItCannotReach) {
  if (embedded()) {
    Write(plant_.c_str(),
          "This is no database, only a text that is long enough to be taken for one. Really.");
  } else {
    plant_ = std::string("'Driver={PostgreSQL Unicode};Server=127.0.0.1;Port=1;Database=x;Uid=u;Pwd=") +
             kPassword + "'";
  }
  const auto findings = Findings();
  ASSERT_EQ(findings.size(), 1U) << ::testing::PrintToString(findings);
  EXPECT_TRUE(findings[0].starts_with("failed   connection: ")) << findings[0];
}

}  // namespace
}  // namespace kx::tool
