#include <algorithm>

#include "tools/vqgas/commands/manual_walk.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/support/number_list.h"

namespace {

std::string join(const std::vector<std::string>& words, const std::string& between) {
  std::string joined;
  for (const std::string& word : words) joined.append(joined.empty() ? "" : between).append(word);
  return joined;
}

std::string list_scenes(const std::string& prefix) {
  std::vector<std::string> scenes = split_text(list_demo_scenes(), ',');
  for (std::string& scene : scenes) scene = prefix + scene.substr(scene.find_first_not_of(' '));
  return join(scenes, " ");
}

/// The first sentence, without what the shells would read as their own.
std::string get_summary(const std::string& description) {
  std::string summary = description.substr(0, description.find_first_of(".;:\n"));
  std::erase_if(summary, [](char letter) { return std::string("'\"[]()`$\\").find(letter) != std::string::npos; });
  return summary;
}

std::string list_commands(const std::vector<CommandEntry>& commands) {
  std::vector<std::string> names;
  for (const CommandEntry& command : commands) names.push_back(command.name);
  return join(names, " ");
}

}  // namespace

std::string print_bash_completion(const std::vector<CommandEntry>& commands) {
  // Bash splits words at colons, so the name of a scene is a word of its own.
  std::string text = R"(# Completion of vqgas for bash.
# Files whose names end in one of the arguments, or all, and folders.
_vqgas_files() {
  local name extension
  compopt -o filenames 2>/dev/null
  while IFS= read -r name; do
    [ -d "$name" ] && COMPREPLY+=("$name")
    [ $# -eq 0 ] && [ ! -d "$name" ] && COMPREPLY+=("$name")
    for extension; do [[ $name == *"$extension" ]] && COMPREPLY+=("$name"); done
  done < <(compgen -f -- "$current")
}
_vqgas_words() {
  local word
  while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$1" -- "$current")
}
_vqgas() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]} scenes options
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    _vqgas_words ")" +
                     list_commands(commands) + R"( --help --version"
    return
  fi
  scenes=")" + list_scenes("") +
                     R"("
  if [ "$current" = : ]; then current=; _vqgas_words "$scenes"; return; fi
  if [ "$previous" = : ]; then _vqgas_words "$scenes"; return; fi
  case "$command $previous" in
)";
  for (const CommandEntry& command : commands) {
    for (const OptionEntry& option : command.options) {
      for (const std::string& name : option.names) {
        if (option.value.empty()) continue;
        text += "    '" + command.name + " " + name + "') ";
        if (!option.choices.empty()) text += "_vqgas_words '" + join(option.choices, " ") + "'; ";
        if (option.is_file) text += "_vqgas_files " + join(option.extensions, " ") + "; ";
        text += "return ;;\n";
      }
    }
  }
  text += "  esac\n  case $command in\n";
  for (const CommandEntry& command : commands) {
    text += "    " + command.name + ") options='";
    for (const OptionEntry& option : command.options)
      if (!option.names.empty()) text += join(option.names, " ") + " ";
    text += "' ;;\n";
  }
  return text + R"(  esac
  if [[ $current == -* ]]; then
    _vqgas_words "$options"
  else
    _vqgas_files
    _vqgas_words ")" +
         list_scenes("demo:") + R"("
  fi
}
complete -F _vqgas vqgas
)";
}

std::string print_zsh_completion(const std::vector<CommandEntry>& commands) {
  std::string text = "#compdef vqgas\n_vqgas_scenes() {\n  _alternative 'files:file:_files' 'scenes:built-in scene:(" +
                     list_scenes("demo\\:") + ")'\n}\n_vqgas() {\n  local line state\n" +
                     "  _arguments -C '--help[Help]' '--version[Version]' '1:subcommand:((";
  for (const CommandEntry& command : commands)
    text += command.name + "\\:\"" + get_summary(command.description) + "\" ";
  text += "))' '*::argument:->arguments'\n  [[ $state == arguments ]] || return\n  case $line[1] in\n";
  for (const CommandEntry& command : commands) {
    text += "    " + command.name + ") _arguments";
    for (const OptionEntry& option : command.options) {
      if (option.names.empty()) continue;
      std::string value;
      if (!option.choices.empty()) {
        value = ":value:(" + join(option.choices, " ") + ")";
      } else if (option.is_file) {
        value = ":file:_files -g \"*(" + join(option.extensions, "|") + ")\"";
      } else if (!option.value.empty()) {
        value = ":value: ";
      }
      for (const std::string& name : option.names)
        text += " \\\n      '" + std::string(option.is_repeatable ? "*" : "") + name + "[" +
                get_summary(option.description) + "]" + value + "'";
    }
    text += " \\\n      '*:file:_vqgas_scenes' ;;\n";
  }
  return text + "  esac\n}\n_vqgas \"$@\"\n";
}

std::string print_fish_completion(const std::vector<CommandEntry>& commands) {
  std::string text = "# Completion of vqgas for fish.\ncomplete -c vqgas -n __fish_use_subcommand -f\n";
  for (const CommandEntry& command : commands) {
    text += "complete -c vqgas -n __fish_use_subcommand -a " + command.name + " -d '" +
            get_summary(command.description) + "'\n";
    const std::string begin = "complete -c vqgas -n '__fish_seen_subcommand_from " + command.name + "'";
    text += begin + " -a '" + list_scenes("demo:") + "'\n";
    for (const OptionEntry& option : command.options) {
      if (option.names.empty()) continue;
      text += begin;
      for (const std::string& name : option.names)
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
      if (!option.choices.empty()) {
        text += " -x -a '" + join(option.choices, " ") + "'";
      } else if (option.is_file) {
        text += " -r -F";
      } else if (!option.value.empty()) {
        text += " -x";
      }
      text += " -d '" + get_summary(option.description) + "'\n";
    }
  }
  return text;
}
