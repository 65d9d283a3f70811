// tools/vqgas/report/page_write.h
//
// The page of `vqgas report`: page.html with page.css, the scripts and the data in place of its marks.
#pragma once
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

/// The files of this folder, which the build embeds.
extern const std::string_view page_html, page_css, page_charts_js, page_tree_js, page_view_js, page_main_js;

/// A whole page. Text from files cannot end the script element that holds the data, nor the title.
std::string print_page(const std::string& title, const nlohmann::ordered_json& data);
