#include "tools/vqgas/report/page_write.h"

#include <nlohmann/json.hpp>

namespace {

std::string escape_html(std::string_view text) {
  std::string out;
  for (const char letter : text) {
    if (letter == '<') {
      out += "&lt;";
    } else if (letter == '>') {
      out += "&gt;";
    } else if (letter == '&') {
      out += "&amp;";
    } else {
      out += letter;
    }
  }
  return out;
}

/// JSON whose strings hold no '<': neither "</script" nor "<!--" can occur.
std::string print_script_json(const nlohmann::ordered_json& data) {
  const std::string json = data.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
  std::string out;
  out.reserve(json.size() + 64);
  for (const char letter : json) {
    if (letter == '<') {
      out += "\\u003c";
    } else {
      out += letter;
    }
  }
  return out;
}

}  // namespace

std::string print_page(const std::string& title, const nlohmann::ordered_json& data) {
  struct Part {
    std::string_view mark;
    std::string text;
  };
  std::string scripts;
  for (const std::string_view script : {page_charts_js, page_tree_js, page_view_js, page_main_js}) scripts += script;
  // The title only passes through JSON where bytes that are not UTF-8 are replaced.
  const std::string clean_title = nlohmann::ordered_json::parse(
      nlohmann::ordered_json(title).dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
  const Part parts[] = {{"@TITLE@", escape_html(clean_title)},
                        {"@STYLE@", std::string(page_css)},
                        {"@DATA@", print_script_json(data)},
                        {"@SCRIPTS@", std::move(scripts)}};
  std::string page;
  std::size_t at = 0;
  for (const Part& part : parts) {  // in the order of the marks, so that no mark is looked for in a text
    const std::size_t mark = page_html.find(part.mark, at);
    page.append(page_html.substr(at, mark - at)).append(part.text);
    at = mark + part.mark.size();
  }
  return page.append(page_html.substr(at));
}
