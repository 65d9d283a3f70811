// What long work says about itself, on a terminal and in a pipe.
#include <gtest/gtest.h>

#include <regex>

#include "support/test_scale.h"
#include "tools/run_program.h"

namespace {

std::vector<int> list_percentages(const std::string& text) {
  const std::regex percentage("([0-9]+)%");
  std::vector<int> all;
  for (std::sregex_iterator at(text.begin(), text.end(), percentage), end; at != end; ++at)
    all.push_back(std::stoi((*at)[1]));
  return all;
}

std::vector<std::string> render(uint samples, const std::string& size = "480x270") {
  return {"render", "demo:knot", "-o", "out.png", "--size", size, "--samples", std::to_string(samples)};
}

/// Too short to say anything about itself, however slow the machine is.
std::vector<std::string> render_little() { return render(1, "16x9"); }

}  // namespace

TEST(VqgasProgress, a_bar_on_a_terminal_ends_at_100_percent) {
  const TestFolder folder;
  const ProgramResult drawn = run_vqgas_on_terminal(folder.get_path(), render(scaled(20, 2)), "TERM=xterm");
  EXPECT_EQ(drawn.exit_code, 0);
  const std::vector<int> percentages = list_percentages(drawn.err);
  ASSERT_GT(percentages.size(), 2u) << drawn.err;
  EXPECT_EQ(percentages.back(), 100);
  const std::regex bar("Render \\[#+\\.+\\] [0-9]+%  [0-9.]+ [kM]?pixels/s  [0-9]+ s left");
  EXPECT_TRUE(std::regex_search(drawn.err, bar)) << drawn.err;
  EXPECT_TRUE(drawn.err.ends_with("\r\033[K")) << "no bar remains";
  EXPECT_FALSE(std::regex_search(drawn.err, std::regex("\033\\[[0-9;]*m"))) << "no color";
  EXPECT_EQ(run_vqgas_on_terminal(folder.get_path(), render_little(), "TERM=dumb").err, "");
  std::vector<std::string> quiet = render(scaled(20, 2));
  quiet.emplace_back("--quiet");
  EXPECT_EQ(run_vqgas_on_terminal(folder.get_path(), quiet, "TERM=xterm").err, "");
}

TEST(VqgasProgress, a_pipe_gets_a_line_each_tenth_of_long_work) {
  const TestFolder folder;
  EXPECT_EQ(run_vqgas(folder.get_path(), render_little()).progress, "");
  ProgramResult result;
  for (uint samples = scaled(32, 2); result.progress.empty() && samples < 1000;
       samples *= 2)  // until it takes long enough
    result = run_vqgas(folder.get_path(), render(samples));
  const std::vector<int> tenths = list_percentages(result.progress);
  ASSERT_FALSE(tenths.empty());
  for (std::size_t k = 0; k < tenths.size(); ++k) {
    EXPECT_EQ(tenths[k] % 10, 0);
    EXPECT_GT(tenths[k], k == 0 ? 0 : tenths[k - 1]);
  }
  EXPECT_EQ(tenths.back(), 100);
  EXPECT_TRUE(std::regex_match(result.progress, std::regex("(progress: Render [0-9]+%, .*\n)+"))) << result.progress;
}
