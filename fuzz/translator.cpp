// The statement translator: any text as SQL, and any text as a value inside the statements of the component.

#include "database/statement_translator.h"
#include "database/text.h"
#include "fuzz/demo_plant.h"
#include "session/session.h"
#include "session/sql_dialect.h"

namespace {

using namespace kx;
using fuzz::Require;

// A translator that has seen other texts makes the same of a text as a new one.
void TranslateAfterOthers(StatementTranslator& translator, std::string_view sql) {
  std::string other(sql);
  for (char& c : other) {
    if (c >= '0' && c <= '9') c = static_cast<char>('0' + ('9' - c));
  }
  for (const std::string_view text : {sql, std::string_view(other), sql}) {
    StatementTranslator fresh;
    const Statement& expected = fresh.Translate(text, SqlTarget::kSqlite);
    const Statement& statement = translator.Translate(text, SqlTarget::kSqlite);
    Require(statement.text == expected.text && statement.parameters == expected.parameters, text);
  }
}

void TranslateAsIs(StatementTranslator& translator, std::string_view sql) {
  for (const SqlTarget target : {SqlTarget::kSqlite, SqlTarget::kPostgres}) {
    const std::string once = translator.Translate(sql, target).text;
    Require(once.size() <= 20 * sql.size() + 200, "a statement does not grow without bounds");
  }
}

// A value between quotes becomes the one parameter, whatever it holds, and leaves the statement alone.
void TranslateAsValue(StatementTranslator& translator, std::string_view value) {
  if (value.find('\'') != value.npos) return;
  const auto translate = [&](std::string_view quoted) -> const Statement& {
    return translator.Translate(
        Concat("select * from T_SFC_JOB  where JOB_NUMBER = '", quoted, "' and JOB_ID > 0"),
        SqlTarget::kSqlite);
  };
  const std::string expected = translate("x").text;
  const Statement& statement = translate(value);
  Require(statement.text == expected, statement.text);
  Require(statement.parameters.size() == 2 && statement.parameters[0].ToText() == value, "the value is kept");
}

// A moment becomes the same ISO text from every dialect.
void TranslateAsTime(StatementTranslator& translator, std::string_view bytes) {
  std::uint32_t seconds = 0;
  for (const char byte : bytes.substr(0, 4)) seconds = seconds << 8 | static_cast<unsigned char>(byte);
  const DateTime time = DateTime(1950, 1, 1).AddSeconds(seconds);
  static Session session;
  for (const int database_type : {0, 1, 2}) {
    session.database_type = static_cast<DatabaseType>(database_type);
    const std::string sql = Concat("select ", SqlDateLiteral(session, time), " from T");
    const Statement& statement = translator.Translate(sql, SqlTarget::kSqlite);
    Require(statement.parameters.size() == 1 && statement.parameters[0].ToText() == time.ToText(), sql);
    const std::string& postgres = translator.Translate(sql, SqlTarget::kPostgres).text;
    Require(postgres.find("TIMESTAMP '" + time.ToText() + "'") != postgres.npos, postgres);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static StatementTranslator translator;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  TranslateAsIs(translator, input);
  TranslateAfterOthers(translator, input);
  TranslateAsValue(translator, input);
  TranslateAsTime(translator, input);
  return 0;
}
