// host/vq_module/module_shading_groups.h
//
// The shading groups of an object: the links of each, and the table that queries read.
#pragma once
#include <span>
#include <vector>

#include "vq_shading_variable/shading_variables.h"

/// Not to be changed while a query uses the table. A group that does not exist is ignored. The only group of most
/// objects is in the object itself: in a large scene a ray waits for every pointer that it follows.
class ModuleShadingGroups {
 public:
  /// All groups have the empty material: nothing is hit.
  explicit ModuleShadingGroups(uint count) {
    if (count == 1) {
      links_ = {&only_links_, 1};
      entries_ = {&only_entry_, 1};
    } else {
      many_links_.resize(count);
      many_entries_.resize(count);
      links_ = many_links_;
      entries_ = many_entries_;
    }
    for (uint group = 0; group < count; ++group) {
      links_[group].material = ShadingGroupLinks::material_empty;
      entries_[group] = &links_[group];
    }
    table_ = ShadingGroupTable(entries_);
  }
  ModuleShadingGroups(const ModuleShadingGroups&) = delete;
  ModuleShadingGroups& operator=(const ModuleShadingGroups&) = delete;

  void set_links(uint group, const ShadingGroupLinks& links) {
    if (group < links_.size()) links_[group] = links;
  }
  /// Groups that are not visible cannot be hit. All are visible at first.
  void set_visibility(uint group, bool visible) {
    if (group < links_.size()) entries_[group] = visible ? &links_[group] : nullptr;
  }
  bool is_visible(uint group) const { return group < entries_.size() && entries_[group] != nullptr; }
  uint get_count() const { return static_cast<uint>(links_.size()); }
  const ShadingGroupTable& get_table() const { return table_; }

 private:
  ShadingGroupTable table_;
  const ShadingGroupLinks* only_entry_ = nullptr;
  ShadingGroupLinks only_links_;
  std::span<ShadingGroupLinks> links_;
  std::span<const ShadingGroupLinks*> entries_;  // of the table: null for a group that is not visible
  std::vector<ShadingGroupLinks> many_links_;
  std::vector<const ShadingGroupLinks*> many_entries_;
};
