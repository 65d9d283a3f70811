// tools/vqgas/report/page_data.h
//
// What the page of `vqgas report` holds of one scene, built with one set of settings.
#pragma once
#include <nlohmann/json.hpp>

#include "tools/vqgas/commands/info_report.h"

/// The most trees of a scene that a page holds, some of each kind.
inline constexpr std::size_t most_page_trees = 24;

/// What a scene was made with, in words, for the page's headings.
struct PageHeading {
  std::string name;      ///< the files
  std::string settings;  ///< options that differ from the defaults, as typed; may be empty
  std::string command;   ///< arguments of `vqgas trace` that load the same scene; empty: it takes one file only
};

/// Reads all trees of the scene and thins them.
/// @param report      of the scene; a report renders a small picture, which builds parts of grids
/// @param most_bytes  of the arrays, before they are written as text
/// @return the numbers, and the arrays in base64. Throws Interrupted
nlohmann::ordered_json make_page_data(const QueryScene& scene, const SceneReport& report, const PageHeading& heading,
                                      u64 most_bytes, AppProgressBar* progress);
