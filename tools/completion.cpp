#include "tools/completion.h"

#include <iostream>

namespace kx::tool {
namespace {

void Offer(const std::string& candidate, const std::string& description, const std::string& begun) {
  if (!candidate.starts_with(begun)) return;
  std::cout << candidate << '\t' << description.substr(0, description.find('\n')) << '\n';
}

// The option of a name, of the command or of one above it.
const CLI::Option* FindOption(const CLI::App* app, const std::string& name) {
  for (; app != nullptr; app = app->get_parent()) {
    if (const CLI::Option* const option = app->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() != 0; }

void OfferValues(const CommandLine& line, const CLI::Option& option, const std::string& prefix,
                 const std::string& begun) {
  if (const auto found = line.choices.find(&option); found != line.choices.end()) {
    for (const std::string& choice : found->second) Offer(prefix + choice, "", begun);
    return;
  }
  const std::string name = option.get_positional() ? option.get_name(true) : option.get_type_name();
  if (name == "FILE" || name == "PLANT" || name == "TARGET") std::cout << '\n';
}

void OfferOptions(const CLI::App* app, const std::string& begun) {
  for (; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* const option : app->get_options()) {
      for (const std::string& name : option->get_lnames())
        Offer("--" + name, option->get_description(), begun);
    }
  }
}

void OfferArguments(const CommandLine& line, const CLI::App& app, std::size_t given,
                    const std::string& begun) {
  if (given == 0) {
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
      Offer(command->get_name(), command->get_description(), begun);
  }
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_positional() && given-- == 0) return OfferValues(line, *option, "", begun);
  }
}

}  // namespace

int Complete(const CommandLine& line, const std::vector<std::string>& words) {
  if (words.empty()) return 0;
  const CLI::App* app = &line.app;
  const CLI::Option* open = nullptr;  // the option whose value comes next
  std::size_t arguments = 0;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    if (open != nullptr) {
      open = nullptr;
    } else if (words[i].starts_with('-')) {
      open = FindOption(app, words[i]);
      if (open != nullptr && !TakesValue(*open)) open = nullptr;
    } else if (const auto commands =
                   app->get_subcommands([&](const CLI::App* each) { return each->check_name(words[i]); });
               arguments == 0 && !commands.empty()) {
      app = commands.front();
    } else {
      ++arguments;
    }
  }

  const std::string& begun = words.back();
  const std::size_t equals = begun.find('=');
  if (open != nullptr) {
    OfferValues(line, *open, "", begun);
  } else if (begun.starts_with('-') && equals != std::string::npos) {
    const CLI::Option* const option = FindOption(app, begun.substr(0, equals));
    if (option != nullptr) OfferValues(line, *option, begun.substr(0, equals + 1), begun);
  } else if (begun.starts_with('-')) {
    OfferOptions(app, begun);
  } else {
    OfferArguments(line, *app, arguments, begun);
  }
  return 0;
}

}  // namespace kx::tool
