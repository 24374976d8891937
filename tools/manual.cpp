#include "tools/manual.h"

#include <cctype>
#include <fstream>

#include "plant/platform.h"

namespace kx::tool {
namespace {

// As troff takes it: no character of it is a command.
std::string Plain(const std::string& text) {
  std::string plain;
  bool line_begins = true;
  for (const char c : text) {
    if (line_begins && (c == '.' || c == '\'')) plain += "\\&";
    if (c == '\\') {
      plain += "\\e";
    } else {
      if (c == '-') plain += '\\';
      plain += c;
    }
    line_begins = c == '\n';
  }
  return plain;
}

std::string PageName(const CLI::App& app) {
  const CLI::App* const parent = app.get_parent();
  return (parent == nullptr ? "" : PageName(*parent) + "-") + app.get_name();
}

std::string CommandName(const CLI::App& app) {
  const CLI::App* const parent = app.get_parent();
  return (parent == nullptr ? "" : CommandName(*parent) + " ") + app.get_name();
}

std::vector<const CLI::App*> Commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// What has no name of its own kind beside it, as a flag has none.
std::string ValueOf(const CLI::Option& option) {
  return option.get_items_expected_max() == 0 ? "" : option.get_type_name();
}

void WriteOption(const CLI::Option& option, std::ostream& page) {
  page << ".TP\n";
  if (option.get_positional()) {
    page << "\\fI" << Plain(option.get_name(true)) << "\\fR\n";
  } else {
    std::string names = option.get_name(false, true);
    for (std::size_t comma = 0; (comma = names.find(',', comma)) != std::string::npos; comma += 2)
      names.insert(comma + 1, " ");
    page << "\\fB" << Plain(names) << "\\fR";
    if (const std::string value = ValueOf(option); !value.empty()) page << " \\fI" << Plain(value) << "\\fR";
    page << '\n';
  }
  page << Plain(option.get_description());
  if (!option.get_default_str().empty())
    page << " (" << Plain(option.get_default_str()) << " when not given)";
  page << ".\n";
  if (!option.get_envname().empty())
    page << "The variable \\fB" << Plain(option.get_envname()) << "\\fR stands for it.\n";
}

void WriteOptions(const CLI::App& app, bool positional, const char* title, std::ostream& page) {
  const auto options =
      app.get_options([&](const CLI::Option* option) { return option->get_positional() == positional; });
  if (!options.empty()) page << ".SH " << title << '\n';
  for (const CLI::Option* const option : options) WriteOption(*option, page);
}

void WriteSynopsis(const CLI::App& app, std::ostream& page) {
  page << ".SH SYNOPSIS\n\\fB" << Plain(CommandName(app)) << "\\fR [\\fIOPTION\\fR]...";
  for (const CLI::Option* const option : app.get_options()) {
    if (!option->get_positional()) continue;
    const bool required = option->get_required();
    page << (required ? " \\fI" : " [\\fI") << Plain(option->get_name(true)) << (required ? "\\fR" : "\\fR]");
  }
  if (!Commands(app).empty()) page << " [\\fICOMMAND\\fR ...]";
  page << '\n';
}

void WritePage(const CLI::App& app, std::ostream& page) {
  std::string title = PageName(app);
  for (char& c : title) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  std::string summary = app.get_description();
  summary.resize(summary.find_last_not_of('.') + 1);
  page << ".TH " << Plain(title) << " 1 \"\" \"KXData7 " KXDATA7_VERSION "\" \"KXData7\"\n.SH NAME\n"
       << Plain(PageName(app)) << " \\- " << Plain(summary) << '\n';
  WriteSynopsis(app, page);
  WriteOptions(app, true, "ARGUMENTS", page);
  WriteOptions(app, false, "OPTIONS", page);
  if (!Commands(app).empty()) page << ".SH COMMANDS\n";
  for (const CLI::App* const command : Commands(app)) {
    page << ".TP\n\\fB" << Plain(PageName(*command)) << "\\fR(1)\n"
         << Plain(command->get_description()) << ".\n";
  }
  if (!app.get_footer().empty()) page << ".SH NOTES\n" << Plain(app.get_footer()) << '\n';
  if (app.get_parent() != nullptr)
    page << ".SH SEE ALSO\n\\fB" << Plain(PageName(*app.get_parent()))
         << "\\fR(1), which has more options and says what the exit status means\n";
}

void WritePages(const CLI::App& app, const std::string& folder) {
  std::ofstream page(ToPath(folder + "/" + PageName(app) + ".1"), std::ios::binary);
  WritePage(app, page);
  if (!page.flush()) throw ToolError("the manual could not be written to " + folder);
  for (const CLI::App* const command : Commands(app)) WritePages(*command, folder);
}

}  // namespace

int WriteManual(const CLI::App& app, const std::string& folder) {
  WritePages(app, folder);
  return 0;
}

}  // namespace kx::tool
