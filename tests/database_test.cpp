// The database layer below the component: values, texts, the statement translator and SQLite.

#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

#include <fstream>
#include <thread>

#include "database/connection.h"
#include "database/database_error.h"
#include "database/numeric_text.h"
#include "database/recordset.h"
#include "database/write_turns.h"
#include "kxdata7/text.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "tests/support/temporary_folder.h"

namespace kx {
namespace {

using namespace std::string_literals;

template <class Function>
std::string ErrorOf(Function function) {
  try {
    function();
  } catch (const DatabaseError& error) {
    return error.description();
  }
  return "no error";
}

TEST(ValueTest, NumericText) {
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"5", 5},       {"  -2.5", -2.5}, {"+.5", 0.5}, {"1.", 1},    {"1e2", 100},
      {"1E-2", 0.01}, {"1e-99999", 0},  {"-0", 0},    {"", {}},     {"  ", {}},
      {".", {}},      {"1 ", {}},       {"1,5", {}},  {"0x10", {}}, {"1e", {}},
      {"1.2.3", {}},  {"- 1", {}},      {"inf", {}},  {"nan", {}},  {"0.000001e-400", 0},
  };
  for (const auto& [text, number] : cases) {
    EXPECT_EQ(ParseNumericText(text), number) << text;
    EXPECT_EQ(IsNumericText(text), number.has_value()) << text;
  }
  EXPECT_EQ(ErrorOf([] { ParseNumericText("1e400"); }), "Overflow");
  EXPECT_EQ(ErrorOf([] { ParseNumericText("1" + std::string(400, '0')); }), "Overflow");
}

TEST(ValueTest, Conversions) {
  EXPECT_EQ(RoundToInt16(2.5), 2);
  EXPECT_EQ(RoundToInt16(3.5), 4);
  EXPECT_EQ(RoundToInt16(-32768.5), -32768);
  EXPECT_EQ(ErrorOf([] { RoundToInt16(32767.5); }), "Overflow");
  EXPECT_EQ(Value("17").ToInt32(), 17);
  EXPECT_EQ(Value(7.5).ToText(), "7.5");
  EXPECT_EQ(Value(DateTime(2024, 3, 5, 7, 5, 9)).ToText(), "2024-03-05 07:05:09");
  EXPECT_EQ(ErrorOf([] { Value().ToInt32(); }), "Invalid use of Null");
  EXPECT_EQ(ErrorOf([] { Value("x").ToInt32(); }), "Type mismatch");
  EXPECT_EQ(ErrorOf([] { Value("2024-02-30").ToDateTime(); }), "Type mismatch");
  EXPECT_EQ(ErrorOf([] { Value(std::int64_t{5'000'000'000}).ToInt32(); }), "Overflow");
  EXPECT_EQ(ErrorOf([] { Value(40000).ToInt16(); }), "Overflow");
}

TEST(ValueTest, DateTimes) {
  EXPECT_EQ(DateTime::Parse("2024-02-29T23:59:59.987"), DateTime(2024, 2, 29, 23, 59, 59));
  EXPECT_EQ(DateTime::Parse("2024-02-29 08:15"), DateTime(2024, 2, 29, 8, 15));
  EXPECT_EQ(DateTime::Parse("2024-02-29"), DateTime(2024, 2, 29));
  for (const char* text : {"", "2023-02-29", "2024-1-01", "2024-01-01 24:00:00", "2024-01-01 10:00:00.", "x",
                           "2024-01-01 10:00:00 ", "2024-01-01x10:00:00", "-024-01-01"}) {
    EXPECT_EQ(DateTime::Parse(text), std::nullopt) << text;
  }
  EXPECT_EQ(DateTime(2026, 1, 11).Weekday(), 1U);
  EXPECT_EQ(DaysBetween(DateTime(1970, 1, 1), DateTime(1969, 12, 31, 22)), -1);
  EXPECT_EQ(SecondsBetween(DateTime(1970, 1, 1), DateTime(1969, 12, 31, 22)), -7200);
  EXPECT_EQ(CombineDateAndTime(DateTime(2024, 1, 2, 3), DateTime(1969, 12, 31, 22, 1)),
            DateTime(2024, 1, 2, 22, 1));
}

TEST(TextTest, Utf) {
  const std::u16string everything = u"A\u00e4\u20ac\U0001F527\0z"s;
  EXPECT_EQ(kxdata7::ToUtf16(kxdata7::ToUtf8(everything)), everything);
  EXPECT_EQ(kxdata7::ToUtf8(std::u16string{0xD83D, u'x', 0xDD27}), "\uFFFDx\uFFFD");
  EXPECT_EQ(kxdata7::ToUtf16("\xFF\xC3(\xED\xA0\x80"), u"\uFFFD\uFFFD(\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(kxdata7::ToUtf16("\xC0\x80"), u"\uFFFD\uFFFD");
}

TEST(TextTest, MessageSubstitution) {
  EXPECT_EQ(FormatResourceMessage(102, {"x"}),
            "Append Item To Log failed because a transaction could not be started.");
  EXPECT_EQ(FormatResourceMessage(126), "###STRING RESOURCE ERROR###");
  EXPECT_EQ(Substitute("%1 %1 %2 %3", {"a", "", "c"}), "a %1 %2 c");
  EXPECT_EQ(Substitute("%1", {"<%3>", "", "z"}), "<z>");
}

TEST(ConnectionStringTest, Parses) {
  const auto parsed =
      ConnectionString::Parse(" provider = SQLite ; Data Source='a;b''c.db';Driver={x}}y};;Mode=\"q\"; ");
  EXPECT_EQ(*parsed.Find("provider"), "SQLite");
  EXPECT_EQ(*parsed.Find("data source"), "a;b'c.db");
  EXPECT_EQ(*parsed.Find("driver"), "x}y");
  EXPECT_EQ(*parsed.Find("mode"), "q");
  EXPECT_EQ(parsed.Find("pwd"), nullptr);
  EXPECT_EQ(ConnectionString::Parse("Provider=MSDASQL;DSN=x;Pwd={a;b}").Without("provider"),
            "DSN=x;Pwd={a;b}");
  EXPECT_EQ(ErrorOf([] { ConnectionString::Parse("Pwd='secret"); }),
            "The connection string has an unclosed quote at the value of \"Pwd\".");
  EXPECT_NE(ErrorOf([] { ConnectionString::Parse("x"); }), "no error");
  EXPECT_NE(ErrorOf([] { ConnectionString::Parse("=1"); }), "no error");
  EXPECT_EQ(ErrorOf([] { ConnectionString::Parse(std::string("Data Source=plant.db\0.old", 25)); }),
            "The connection string holds a NUL character.");
}

std::string Translated(StatementTranslator& translator, std::string_view sql, SqlTarget target) {
  const Statement& statement = translator.Translate(sql, target);
  std::string text;
  bool blank = false;
  for (const char c : statement.text) {
    if (c != ' ') {
      if (blank && !text.empty()) text += ' ';
      text += c;
    }
    blank = c == ' ';
  }
  for (const Value& parameter : statement.parameters) text += " <" + parameter.ToText() + ">";
  return text;
}

std::string Translated(std::string_view sql, SqlTarget target) {
  StatementTranslator translator;
  return Translated(translator, sql, target);
}

TEST(TranslatorTest, EveryConstructForBothTargets) {
  const struct {
    const char* sql;
    const char* sqlite;
    const char* postgres;
  } cases[] = {
      {"x = TO_DATE('3/5/2024 07:05:09', 'MM/DD/YYYY HH24:MI:SS') ", "x = ? <2024-03-05 07:05:09>",
       "x = TIMESTAMP '2024-03-05 07:05:09'"},
      {"TO_DATE('01/02/1970 12:05:09 AM', 'MM/DD/YYYY HH:MI:SS AM')", "? <1970-01-02 00:05:09>",
       "TIMESTAMP '1970-01-02 00:05:09'"},
      {"TO_DATE('01/02/1970 12:05:09 PM', 'MM/DD/YYYY HH:MI:SS AM')", "? <1970-01-02 12:05:09>",
       "TIMESTAMP '1970-01-02 12:05:09'"},
      {"a < #12/31/2023 23:59:59# ", "a < ? <2023-12-31 23:59:59>", "a < TIMESTAMP '2023-12-31 23:59:59'"},
      {"CAST('3/5/2024 07:05:09' AS DATETIME)", "? <2024-03-05 07:05:09>", "TIMESTAMP '2024-03-05 07:05:09'"},
      {"(T.A + -1) as B", "datetime(T.A, ? ) as B <-1 days>", "(T.A + -1 * INTERVAL '1 day') as B"},
      {"DateAdd('dd', -1,T.A)", "datetime(T.A, ? ) <-1 days>", "(T.A + -1 * INTERVAL '1 day')"},
      {"DateAdd(dd, 2,T.A)", "datetime(T.A, ? ) <2 days>", "(T.A + 2 * INTERVAL '1 day')"},
      {"from T WITH (nolock) where", "from T where", "from T where"},
      {"from A, B where A.X = B.Y (+)) J", "from A LEFT JOIN B on A.X = B.Y) J",
       "from A LEFT JOIN B on A.X = B.Y) J"},
      {"IIF(S = 1,(Select B, 2),IIF(S=2,3,0)) AS L",
       "IIF(S = ? ,(Select B, ? ),IIF(S= ? , ? , ? )) AS L <1> <2> <2> <3> <0>",
       "CASE WHEN S = 1 THEN (Select B, 2) ELSE CASE WHEN S=2 THEN 3 ELSE 0 END END AS L"},
      {"Select SYSDATE from DUAL", "Select datetime('now','localtime') AS SYSDATE",
       "Select date_trunc('second', LOCALTIMESTAMP) AS SYSDATE"},
      {"SELECT Date() as D , Time() as T ",
       "SELECT datetime('now','localtime') as D , datetime('now','localtime') as T",
       "SELECT date_trunc('second', LOCALTIMESTAMP) as D , date_trunc('second', LOCALTIMESTAMP) as T"},
      {"select CURRENT_TIMESTAMP AS P", "select datetime('now','localtime') AS P",
       "select date_trunc('second', LOCALTIMESTAMP) AS P"},
      {"SET NOCOUNT ON; SET DATEFORMAT MDY; INSERT INTO T_SFC_EVENT (START_TIME, SETUP_TIME, PARAM1) VALUES "
       "('03/05/2024 07:05:09', 0, '03/05/2024 07:05:09'); SELECT SCOPE_IDENTITY() AS [SCOPE_IDENTITY]; SET "
       "NOCOUNT "
       "OFF;",
       "INSERT INTO T_SFC_EVENT (START_TIME, SETUP_TIME, PARAM1) VALUES ( ? , ? , ? ) RETURNING EVENT_ID "
       "<2024-03-05 "
       "07:05:09> <0> <03/05/2024 07:05:09>",
       "INSERT INTO T_SFC_EVENT (START_TIME, SETUP_TIME, PARAM1) VALUES ( TIMESTAMP '2024-03-05 07:05:09', "
       "0, "
       "'03/05/2024 07:05:09') RETURNING EVENT_ID"},
      // Texts that look like constructs, doubled quotes, and constructs that nobody writes.
      {"A = 'with (NOLOCK) #1/1/2024 00:00:00# (a + 1) SYSDATE from DUAL'",
       "A = ? <with (NOLOCK) #1/1/2024 00:00:00# (a + 1) SYSDATE from DUAL>",
       "A = 'with (NOLOCK) #1/1/2024 00:00:00# (a + 1) SYSDATE from DUAL'"},
      {"A = 'it''s'", "A = ? <it's>", "A = 'it''s'"},
      {"A = 'O'Brien'", "A = ? Brien' <O>", "A = 'O'Brien'"},
      {"A = '1'2'3'", "A = ? ? ? <1> <2> <3>", "A = '1'2'3'"},
      {"TO_DATE('x', 'y')", "TO_DATE( ? , ? ) <x> <y>", "TO_DATE('x', 'y')"},
      {"(A + B)", "(A + B)", "(A + B)"},
      {"A = -1.5", "A = - ? <1.5>", "A = -1.5"},
      // The order that PostgreSQL needs for "first row".
      {"select * from T_SFC_JOB where JOB_NUMBER = 'x'", "select * from T_SFC_JOB where JOB_NUMBER = ? <x>",
       "select * from T_SFC_JOB where JOB_NUMBER = 'x' order by JOB_ID"},
      {"select COUNT(MDC_LOG_ID) AS CT from T_SFC_MDC_LOG", "select COUNT(*) AS CT from T_SFC_MDC_LOG",
       "select COUNT(MDC_LOG_ID) AS CT from T_SFC_MDC_LOG"},
      {"select COUNT(COMMAND_ID) AS CT from T_SFC_MDC_LOG",
       "select COUNT(COMMAND_ID) AS CT from T_SFC_MDC_LOG",
       "select COUNT(COMMAND_ID) AS CT from T_SFC_MDC_LOG"},
      {"select A from T_SFC_X, T_SFC_Y where B", "select A from T_SFC_X, T_SFC_Y where B",
       "select A from T_SFC_X, T_SFC_Y where B"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Translated(test.sql, SqlTarget::kSqlite), test.sqlite);
    EXPECT_EQ(Translated(test.sql, SqlTarget::kPostgres), test.postgres);
  }
}

// Of each construct texts of one shape, whose literals want different translations.
TEST(TranslatorTest, ATextBecomesTheSameWhateverOfItsShapeCameBefore) {
  const std::string batch =
      "SET NOCOUNT ON; SET DATEFORMAT MDY; INSERT INTO T_SFC_EVENT (START_TIME, PARAM1) VALUES ('*', '*'); "
      "SELECT SCOPE_IDENTITY() AS [SCOPE_IDENTITY]; SET NOCOUNT OFF;";
  const std::vector<std::pair<std::string, std::vector<std::string>>> shapes = {
      {"TO_DATE('*', 'MM/DD/YYYY HH24:MI:SS')",
       {"3/5/2024 07:05:09", "12/31/1999 23:59:59", "", "3/5/2024 07:05:09 AM", "2/30/2024 00:00:00"}},
      {"TO_DATE('3/5/2024 07:05:09 PM', '*')",
       {"MM/DD/YYYY HH24:MI:SS", "MM/DD/YYYY HH:MI:SS AM", "MM/DD/YYYY"}},
      {"TO_DATE('*', 'MM/DD/YYYY HH:MI:SS AM')", {"3/5/2024 07:05:09 PM", "3/5/2024 07:05:09", "PM"}},
      {"CAST('*' AS DATETIME)", {"3/5/2024 07:05:09", "never", "3/6/2024 07:05:09"}},
      {"a < #*#", {"3/5/2024 07:05:09", "now", "3/6/2024 07:05:09"}},
      {"DateAdd('*', -1, T.A)", {"dd", "mm", "'"}},
      {"DateAdd(dd, *, T.A)", {"1", "2", "99999999999", "1.5"}},
      {"(T.A + *) - 1", {"1", "7", "99999999999", "0.5"}},
      {"A = * and B = 'it''s' or C1 = *", {"1", "2.5", "99999999999999999999", "007"}},
      {"A = '*' and B = \"x1\"", {"O''Brien", "", "1' or '1", "'"}},
      {batch, {"3/5/2024 07:05:09", "3/6/2024 07:05:10", "", "never"}},
  };
  for (const auto& [shape, literals] : shapes) {
    std::vector<std::string> texts;
    for (const std::string& literal : literals) {
      std::string& text = texts.emplace_back(shape);
      for (std::size_t at = 0; (at = text.find('*')) != std::string::npos;) text.replace(at, 1, literal);
    }
    StatementTranslator translator;
    for (const std::string& first : texts) {
      for (const std::string& second : texts) {
        Translated(translator, first, SqlTarget::kSqlite);
        EXPECT_EQ(Translated(translator, second, SqlTarget::kSqlite), Translated(second, SqlTarget::kSqlite))
            << "after " << first;
      }
    }
  }
}

// It has no key that could be asked for.
TEST(TranslatorTest, IdentityBatchOnAnotherTablePasses) {
  const std::string sql =
      "SET NOCOUNT ON; SET DATEFORMAT MDY; INSERT INTO JOB (A) VALUES ('x'); SELECT SCOPE_IDENTITY() AS "
      "[SCOPE_IDENTITY]; SET NOCOUNT OFF;";
  EXPECT_EQ(Translated(sql, SqlTarget::kPostgres), sql);
}

TEST(DialectTest, Fragments) {
  Session session;
  const DateTime time(2024, 3, 5, 7, 5, 9);
  const struct {
    int type;
    const char* literal;
    const char* add;
    const char* iif;
    std::optional<std::string_view> hint;
  } cases[] = {
      {0, "TO_DATE('3/5/2024 07:05:09', 'MM/DD/YYYY HH24:MI:SS') ", " (e + -1)",
       " CASE WHEN c THEN a ELSE b END ", ""},
      {1, " #3/5/2024 07:05:09# ", " DateAdd('dd', -1,e)", " IIF(c,a,b)", ""},
      {2, "CAST('3/5/2024 07:05:09' AS DATETIME) ", " DateAdd(dd, -1,e)", " CASE WHEN c THEN a ELSE b END ",
       " with (NOLOCK)"},
      {3, "", "", "", {}},
      {-1, "", "", "", {}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.type);
    session.database_type = static_cast<DatabaseType>(test.type);
    EXPECT_EQ(SqlDateLiteral(session, time), test.literal);
    EXPECT_EQ(SqlDateAdd(session, "e", -1), test.add);
    EXPECT_EQ(SqlIif(session, "c", "a", "b"), test.iif);
    EXPECT_EQ(GetNoLock(session), test.hint);
  }
}

class SqliteTest : public testing::Test {
 protected:
  SqliteTest() {
    db.Open("Provider=SQLite;Data Source=:memory:");
    db.ExecuteDirect("create table T_SFC_X (X_ID integer primary key, NAME text, T datetime, N real)");
  }
  Connection db;
};

TEST_F(SqliteTest, RecordsetEditsByKey) {
  Recordset rows(db, "select * from T_SFC_X where X_ID = 0");
  EXPECT_TRUE(rows.IsBof() && rows.IsEof());
  EXPECT_EQ(ErrorOf([&] { rows.Fields("NAME"); }),
            "Either BOF or EOF is true, or the current record has been deleted.");
  const ColumnValue columns[] = {{"NAME", "Zoë's"}, {"T", DateTime(2024, 1, 2, 3, 4, 5)}};
  EXPECT_EQ(db.InsertRow("T_SFC_X", columns), 1);
  rows.Open(db, "select * from T_SFC_X where X_ID = 1");
  EXPECT_EQ(rows.Fields("name").ToText(), "Zoë's");
  rows.Set("N", 0.1F);
  rows.CancelUpdate();
  EXPECT_TRUE(rows.Fields("N").IsNull());
  rows.Set("N", 0.1F);
  EXPECT_EQ(rows.edit_mode(), Recordset::EditMode::kInProgress);
  rows.Update();

  Recordset again(db, "select X_ID, NAME, T, N, (select T from T_SFC_X) as E from T_SFC_X");
  EXPECT_EQ(again.Fields("NAME").ToText(), "Zoë's");
  EXPECT_EQ(again.Fields("T"), Value(DateTime(2024, 1, 2, 3, 4, 5)));
  EXPECT_EQ(again.Fields("E"), again.Fields("T"));
  EXPECT_EQ(again.Fields("N").ToFloat(), 0.1F);
  EXPECT_NE(ErrorOf([&] { again.Fields("NOTHING"); }), "no error");

  rows.Delete();
  EXPECT_TRUE(rows.IsEof());
  again.Set("NAME", "late");
  EXPECT_EQ(ErrorOf([&] { again.Update(); }),
            "Row cannot be located for updating. Some values may have been changed since it was last read.");
  again.Close();
  EXPECT_EQ(ErrorOf([&] { again.Fields("NAME"); }), "Operation is not allowed when the object is closed.");
}

TEST_F(SqliteTest, StatementsAreWhole) {
  EXPECT_EQ(ErrorOf([&] { db.Execute("insert into T_SFC_X (NAME) values ('a'); delete from T_SFC_X"); }),
            "The text is not exactly one statement.");
  EXPECT_NE(ErrorOf([&] { db.Execute(std::string("insert into T_SFC_X (NAME) values ('a\0b')", 41)); }),
            "no error");
  EXPECT_NE(ErrorOf([&] { db.Execute("insert into T_SFC_X (NAME) values ('O'Brien')"); }), "no error");
  EXPECT_EQ(db.Execute("select * from T_SFC_X").count(), 0U);
}

TEST_F(SqliteTest, ColumnsFollowTheTable) {
  db.Execute("insert into T_SFC_X (NAME) values ('a')");
  EXPECT_EQ(db.Execute("select * from T_SFC_X").columns.size(), 4U);
  db.ExecuteDirect("alter table T_SFC_X add column M datetime");
  db.ExecuteDirect("update T_SFC_X set M = '2024-01-02 03:04:05'");
  EXPECT_EQ(db.Execute("select * from T_SFC_X").at(0, 4), Value(DateTime(2024, 1, 2, 3, 4, 5)));
}

TEST_F(SqliteTest, Transactions) {
  EXPECT_EQ(ErrorOf([&] { db.Rollback(); }), "no error");
  EXPECT_EQ(ErrorOf([&] { db.Commit(); }), "No transaction is open.");
  db.Begin();
  db.Execute("insert into T_SFC_X (NAME) values ('a')");
  EXPECT_NE(ErrorOf([&] { db.Begin(); }), "no error");
  db.ExecuteDirect("ROLLBACK");  // as the engine itself does when the disk is full
  const std::string ended = "The transaction was ended by the database and must be rolled back.";
  EXPECT_EQ(ErrorOf([&] { db.Execute("select * from T_SFC_X"); }), ended);
  EXPECT_EQ(ErrorOf([&] { db.Commit(); }), ended);
  EXPECT_EQ(ErrorOf([&] { db.Rollback(); }), "no error");
  EXPECT_EQ(db.Execute("select * from T_SFC_X").count(), 0U);
  db.Close();
  EXPECT_EQ(ErrorOf([&] { db.Execute("select 1"); }), "Operation is not allowed when the object is closed.");
}

TEST(SqliteOpenTest, SaysWhatIsWrong) {
  const TemporaryFolder folder;
  std::ofstream(folder.path() / "text.db") << std::string(5000, 'x');
  const std::string file = "Provider=SQLite;Data Source=" + folder.path().string();
  const std::pair<std::string, std::string> cases[] = {
      {file + "/missing.db", "missing.db\": unable to open database file"},
      {file, "unable to open database file"},
      {file + "/text.db", "text.db\": file is not a database"},
      {file + "/x.db;Colour=red", "keyword that SQLite does not know: \"colour\""},
      {file + "/x.db;Mode=Sideways", "no valid value for \"mode\""},
      {file + "/x.db;Busy Timeout=-1", "no valid value for \"busy timeout\""},
      {"Provider=SQLite", "names no \"Data Source\""},
      {"Provider=Other;Data Source=x", "Provider cannot be found. It may not be properly installed."},
  };
  for (const auto& [connection_string, text] : cases) {
    Connection db;
    EXPECT_NE(ErrorOf([&] { db.Open(connection_string); }).find(text), std::string::npos)
        << connection_string;
    EXPECT_FALSE(db.IsOpen());
  }
  Connection created;
  created.Open(file + "/new.db;Mode=ReadWriteCreate;Synchronous=Normal;Busy Timeout=50");
  Connection other;
  other.Open(file + "/new.db;Busy Timeout=0");
  created.Begin();
  try {
    other.Begin();
    ADD_FAILURE() << "a second writer began";
  } catch (const DatabaseError& error) {
    EXPECT_TRUE(error.busy()) << error.description();
  }
}

// Turns to write a file: one at a time, and none waits for the dead.
TEST(WriteTurnsTest, OneAtATimeAndNoneWaitsForTheDead) {
  const TemporaryFolder folder;
  const std::string file = (folder.path() / "plant.db").string();
  std::ofstream(file) << "x";
  constexpr std::chrono::milliseconds kLongest{10'000};
  // Whether another thread gets a turn within so many milliseconds.
  const auto other_gets_one = [&](int time) {
    bool taken = false;
    std::jthread([&] {
      WriteTurns turns(file);
      turns.Take(false, {}, std::chrono::milliseconds(time));
      taken = turns.taken();
    }).join();
    return taken;
  };
  WriteTurns turns(file);
  turns.Take(true, {}, kLongest);
  ASSERT_TRUE(turns.taken());
  EXPECT_FALSE(other_gets_one(10));  // it goes on without
  bool waited = false;
  std::jthread waiter([&] { waited = other_gets_one(10'000); });
  turns.Give();
  waiter.join();
  EXPECT_TRUE(waited);
#ifndef _WIN32
  const pid_t child = fork();
  if (child == 0) {
    WriteTurns dying(file);
    dying.Take(false, {}, kLongest);
    raise(SIGKILL);
  }
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
#endif
  turns.Take(false, {}, kLongest);
  EXPECT_TRUE(turns.taken());
  WriteTurns nowhere((folder.path() / "missing").string());
  nowhere.Take(false, {}, kLongest);
  EXPECT_FALSE(nowhere.taken());
}

}  // namespace
}  // namespace kx
