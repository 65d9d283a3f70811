#include "tools/vqgas/commands/manual.h"

#include "tools/vqgas/commands/manual_walk.h"
#include "tools/vqgas/support/output_file.h"

namespace {

/// Text of a page: dashes that can be copied, and no line that begins like a request.
std::string escape(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    const bool begins_line = escaped.empty() || escaped.back() == '\n';
    if (begins_line && (letter == '.' || letter == '\'')) escaped += "\\&";
    if (letter == '\\') {
      escaped += "\\e";
    } else if (letter == '-') {
      escaped += "\\-";
    } else {
      escaped += letter;
    }
  }
  return escaped;
}

/// Lines of prose become one, since the page is set in its own width.
std::string join_lines(std::string text) {
  for (char& letter : text)
    if (letter == '\n') letter = ' ';
  return text.erase(text.find_last_not_of(' ') + 1);
}

std::string print_header(const std::string& name, const std::string& about) {
  std::string title = name;
  for (char& letter : title) letter = static_cast<char>(letter >= 'a' && letter <= 'z' ? letter - 'a' + 'A' : letter);
  return ".TH " + escape(title) + " 1 \"\" \"vqgas " VQGAS_VERSION "\" \"User Commands\"\n.SH NAME\n" + escape(name) +
         " \\- " + escape(join_lines(about)) + "\n";
}

std::string print_option(const OptionEntry& option) {
  std::string text = ".TP\n";
  for (const std::string& name : option.names)
    text += (&name == option.names.data() ? "\\fB" : ", \\fB") + escape(name) + "\\fR";
  if (!option.value.empty()) text += (option.names.empty() ? "\\fI" : " \\fI") + escape(option.value) + "\\fR";
  text += "\n" + escape(join_lines(option.description)) + "\n";
  if (!option.choices.empty()) {
    text += option.description.empty() ? "One of" : ".br\nOne of";
    for (const std::string& choice : option.choices)
      text += (&choice == option.choices.data() ? " " : ", ") + escape(choice);
    text += ".\n";
  }
  if (!option.default_value.empty()) text += ".br\nDefault: " + escape(option.default_value) + "\n";
  return text;
}

std::string print_command_page(const CommandEntry& command) {
  std::string page = print_header("vqgas-" + command.name, command.description);
  page += ".SH SYNOPSIS\n\\fBvqgas " + command.name + "\\fR [\\fIOPTIONS\\fR]";
  std::string arguments, options;
  for (const OptionEntry& option : command.options) {
    if (option.names.empty()) page += " \\fI" + option.value + "\\fR" + (option.is_repeatable ? "..." : "");
    (option.names.empty() ? arguments : options) += print_option(option);
  }
  page += "\n.SH ARGUMENTS\n" + arguments + ".SH OPTIONS\n" + options;
  if (!command.notes.empty()) page += ".SH NOTES\n" + escape(join_lines(command.notes)) + "\n";
  if (!command.examples.empty()) page += ".SH EXAMPLES\n.nf\n" + escape(command.examples) + "\n.fi\n";
  return page + ".SH SEE ALSO\n.BR vqgas (1)\n";
}

std::string print_main_page(const CLI::App& app, const std::vector<CommandEntry>& commands) {
  std::string page = print_header("vqgas", app.get_description());
  page +=
      ".SH SYNOPSIS\n\\fBvqgas\\fR \\fISUBCOMMAND\\fR [\\fIOPTIONS\\fR] \\fIFILE\\fR...\n.br\n\\fBvqgas \\-\\-help\\fR "
      "| "
      "\\fB\\-\\-version\\fR\n.SH SUBCOMMANDS\n";
  for (const CommandEntry& command : commands)
    page += ".TP\n.BR vqgas\\-" + command.name + " (1)\n" + escape(join_lines(command.description)) + "\n";
  page +=
      ".SH EXIT STATUS\n0 on success; 1 for bad input or an output that cannot be written; 2 for an invalid command "
      "line; 128 and the number of the signal after Ctrl\\-C and other signals.\n"
      ".SH ENVIRONMENT\n.TP\n\\fBTERM\\fR\nIf it is \\fIdumb\\fR, progress is printed as plain lines.\n"
      ".TP\n\\fBNO_COLOR\\fR\nNo output is colored in any case.\n.SH SEE ALSO\n";
  for (const CommandEntry& command : commands)
    page += ".BR vqgas\\-" + command.name + (&command == &commands.back() ? " (1)\n" : " (1),\n");
  return page;
}

}  // namespace

void write_manual(const CLI::App& app, const std::string& folder) {
  const std::vector<CommandEntry> commands = walk_commands(app);
  write_text_file(folder + "/vqgas.1", print_main_page(app, commands));
  for (const CommandEntry& command : commands)
    write_text_file(folder + "/vqgas-" + command.name + ".1", print_command_page(command));
  write_text_file(folder + "/vqgas.bash", print_bash_completion(commands));
  write_text_file(folder + "/_vqgas", print_zsh_completion(commands));
  write_text_file(folder + "/vqgas.fish", print_fish_completion(commands));
}
