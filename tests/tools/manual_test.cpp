// Manual pages and completion, read by the programs that they are for.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "tools/run_program.h"

namespace {

/// What a shell command prints, in a folder.
std::string run_shell(const TestFolder& folder, const std::string& command) {
  std::string text;
  FILE* pipe = popen(("cd '" + folder.get_path().string() + "' && { " + command + "; } 2>&1").c_str(), "r");
  std::array<char, 4096> piece;
  for (std::size_t size; (size = fread(piece.data(), 1, piece.size(), pipe)) > 0;) text.append(piece.data(), size);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

/// The completions of bash, between blanks.
std::string complete(const TestFolder& folder, const std::string& words) {
  const std::string script = "source ./vqgas.bash; COMP_WORDS=(" + words +
                             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vqgas; echo \"${COMPREPLY[*]}\"";
  return run_shell(folder, "bash -c '" + script + "'");
}

}  // namespace

TEST(VqgasManual, pages_and_completion_are_those_of_the_help) {
  const TestFolder folder;
  ASSERT_EQ(run_vqgas(folder.get_path(), {"--write-manual", "."}).exit_code, 0);
  int pages = 0;
  for (const std::string& name : folder.list()) {
    if (!name.ends_with(".1")) continue;
    ++pages;
    EXPECT_EQ(run_shell(folder, "man --warnings -E UTF-8 -l -Tutf8 -Z " + name + " >/dev/null"), "") << name;
  }
  EXPECT_GE(pages, 10);
  const std::string page = run_shell(folder, "man -E ascii -l vqgas-trace.1 | col -b");
  for (const char* text :
       {"vqgas trace [OPTIONS] FILE", "--format", "csv, json, table", "EXAMPLES", "vqgas trace bunny.obj"})
    EXPECT_NE(page.find(text), std::string::npos) << text;

  EXPECT_EQ(run_shell(folder, "bash -n vqgas.bash; zsh -n _vqgas; fish -n vqgas.fish"), "");
  for (const char* name : {"pie.png", "pie.obj", "pie.hair"}) folder.write(name, "");
  EXPECT_EQ(complete(folder, "vqgas tra"), "trace\n");
  EXPECT_EQ(complete(folder, "vqgas trace --format \"\""), "csv json table\n");
  EXPECT_EQ(complete(folder, "vqgas trace --form"), "--format\n");
  EXPECT_EQ(complete(folder, "vqgas info demo : kn"), "knot\n");
  EXPECT_EQ(complete(folder, "vqgas info pie.o"), "pie.obj\n");
  EXPECT_EQ(complete(folder, "vqgas render pie.obj -o pi"), "pie.png\n");
  EXPECT_EQ(complete(folder, "vqgas groom pie.obj -o pi"), "pie.hair\n");
  EXPECT_EQ(run_shell(folder, "fish -c 'source vqgas.fish; complete -C \"vqgas trace --format \"' | cut -f 1 | sort"),
            "csv\njson\ntable\n");
}
