#include "tools/vqgas/commands/manual_walk.h"

#include <regex>

#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// The braces of the parser's "TEXT:{a,b}".
std::vector<std::string> find_choices(const CLI::Option& option) {
  if (option.check_lname("layers")) {
    std::vector<std::string> layers = split_text(list_layers(), ',');
    for (std::string& layer : layers) layer.erase(0, layer.find_first_not_of(' '));
    return layers;
  }
  const std::string type = option.get_type_name();
  const std::size_t begin = type.find('{'), end = type.find('}');
  if (begin == std::string::npos || end == std::string::npos) return {};
  return split_text(type.substr(begin + 1, end - begin - 1), ',');
}

/// Of names such as NAME.png in the type and the description.
std::vector<std::string> find_extensions(const OptionEntry& entry) {
  static const std::regex file_name("\\b[A-Z]+(\\.[a-z]+)");
  const std::string text = entry.value + " " + entry.description;
  std::vector<std::string> extensions;
  for (std::sregex_iterator at(text.begin(), text.end(), file_name), end; at != end; ++at)
    extensions.push_back((*at)[1]);
  if (entry.value == "FILE" && entry.description.find("JSON") != std::string::npos) extensions.emplace_back(".json");
  return extensions;
}

OptionEntry walk_option(const CLI::Option& option) {
  OptionEntry entry;
  for (const std::string& name : option.get_snames()) entry.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) entry.names.push_back("--" + name);
  entry.description = option.get_description();
  entry.default_value = option.get_default_str();
  entry.choices = find_choices(option);
  entry.is_required = option.get_required();
  entry.is_repeatable = option.get_items_expected_max() > 1;
  if (entry.names.empty()) {
    entry.value = option.get_name();
    entry.is_file = true;
    return entry;
  }
  if (option.get_items_expected_max() == 0) return entry;
  const std::string type = option.get_type_name();
  entry.value = type.find('{') == std::string::npos ? type.substr(0, type.find(':')) : "WORD";
  entry.extensions = find_extensions(entry);
  entry.is_file = !entry.extensions.empty();
  return entry;
}

}  // namespace

CommandEntry walk_command(const CLI::App& command) {
  CommandEntry entry;
  entry.name = command.get_name();
  entry.description = command.get_description();
  const std::string footer = command.get_footer(), mark = "Example:\n";
  const std::size_t examples = footer.find(mark);
  entry.notes = footer.substr(0, examples);
  if (examples != std::string::npos) entry.examples = footer.substr(examples + mark.size());
  for (const bool is_positional : {true, false}) {
    for (const CLI::Option* option : command.get_options()) {
      if (option->nonpositional() != is_positional && !option->get_group().empty())
        entry.options.push_back(walk_option(*option));
    }
  }
  return entry;
}

std::vector<CommandEntry> walk_commands(const CLI::App& app) {
  std::vector<CommandEntry> entries;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    entries.push_back(walk_command(*command));
  return entries;
}
