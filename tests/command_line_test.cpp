// What the command line says of itself: to shells that complete it, and in the manual.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/temporary_folder.h"
#include "tools/completion.h"
#include "tools/manual.h"

namespace kx::tool {
namespace {

// The candidates for the last word; "" stands for the names of files.
std::vector<std::string> Candidates(const std::vector<std::string>& words) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(Complete(CommandLine(), words), 0);
  std::istringstream output(testing::internal::GetCapturedStdout());
  std::vector<std::string> candidates;
  for (std::string line; std::getline(output, line);) candidates.push_back(line.substr(0, line.find('\t')));
  return candidates;
}

using Words = std::vector<std::string>;

TEST(CompletionTest, OffersWhatFits) {
  EXPECT_GT(Candidates({""}).size(), 20U);
  EXPECT_EQ(Candidates({"gra"}), Words{"grants"});
  EXPECT_EQ(Candidates({"machine", ""}), Words{"add"});
  EXPECT_EQ(Candidates({"queue", "--as"}), Words{"--aside"});
  EXPECT_EQ(Candidates({"queue", "set-aside", "--re"}), Words{"--reason"});
  EXPECT_EQ(Candidates({"--dnc", "append", "p.db", "--pla"}), Words{"--plant-file"}) << "as of all commands";
  EXPECT_EQ(Candidates({"append", "p.db", "--event", "setup"}), (Words{"setup start", "setup end"}));
  EXPECT_EQ(Candidates({"--dialect", "a"}), Words{"access"});
  EXPECT_EQ(Candidates({"--dialect=s"}), Words{"--dialect=sqlserver"});
  EXPECT_EQ(Candidates({"report", "p.db", "--by", "da"}), Words{"day"});
}

TEST(CompletionTest, OffersFilesWhereTheyBelong) {
  for (const Words& words : {Words{"status", ""}, Words{"import", "p.db", ""}, Words{"--library", "x"},
                             Words{"report", "p.db", "--html", ""}, Words{"--plant-file=x"}})
    EXPECT_EQ(Candidates(words), Words{""}) << words.back();
  EXPECT_EQ(Candidates({"status", "p.db", ""}), Words{}) << "there is one plant";
  EXPECT_EQ(Candidates({"append", "--machine", ""}), Words{});
  EXPECT_EQ(Candidates({"nothing", "--so"}), Words{});
  EXPECT_EQ(Candidates({}), Words{});
}

class ManualTest : public testing::Test {
 protected:
  std::string Page(const std::string& name) const {
    std::ifstream file(folder_ / (name + ".1"));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const TemporaryFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path();
};

TEST_F(ManualTest, EveryCommandHasAPageWithItsOptions) {
  const CommandLine line;
  ASSERT_EQ(WriteManual(line.app, folder_.string()), 0);
  std::set<std::string> pages;
  const auto expect = [&](const auto& self, const CLI::App& app, const std::string& name) -> void {
    const std::string page = Page(name);
    pages.insert(name + ".1");
    for (const CLI::Option* const option : app.get_options()) {
      for (const std::string& each : option->get_lnames()) {
        const std::string escaped = std::regex_replace("--" + each, std::regex("-"), "\\-");
        EXPECT_NE(page.find(escaped + "\\fR"), std::string::npos) << name << ": " << escaped;
      }
    }
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
      self(self, *command, name + "-" + command->get_name());
  };
  expect(expect, line.app, "kxdata7");
  EXPECT_TRUE(pages.contains("kxdata7-queue-put-back.1"));
  for (const auto& file : std::filesystem::directory_iterator(folder_))
    EXPECT_TRUE(pages.contains(file.path().filename().string())) << file.path();
}

TEST_F(ManualTest, NoTextBecomesACommandOfTroff) {
  CommandLine line;
  line.app.add_subcommand("odd", ".begins \\with\n'what troff takes for its own")
      ->add_flag("--flag")
      ->description("-x \\fB");
  ASSERT_EQ(WriteManual(line.app, folder_.string()), 0);
  const std::string page = Page("kxdata7-odd");
  EXPECT_NE(page.find("\\- \\&.begins \\ewith\n\\&'what"), std::string::npos) << page;
  EXPECT_NE(page.find("\n\\-x \\efB.\n"), std::string::npos) << page;
  EXPECT_NE(Page("kxdata7").find("\\fBKXDATA7_LIBRARY\\fR"), std::string::npos);
}

TEST_F(ManualTest, SaysWhatCannotBeWritten) {
  EXPECT_THROW(WriteManual(CommandLine().app, "/nowhere"), ToolError);
}

}  // namespace
}  // namespace kx::tool
