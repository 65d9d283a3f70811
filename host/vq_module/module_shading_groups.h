// host/vq_module/module_shading_groups.h
//
// The shading groups of an object: the links of each, and the table that queries read.
#pragma once
#include <vector>

#include "vq_shading_variable/shading_variables.h"

/// Not to be changed while a query uses the table. A group that does not exist is ignored.
class ModuleShadingGroups {
 public:
  /// All groups have the empty material: nothing is hit.
  explicit ModuleShadingGroups(uint count) : links_(count, {ShadingGroupLinks::material_empty, nullptr, nullptr}) {
    for (const ShadingGroupLinks& links : links_) entries_.push_back(&links);
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
  std::vector<ShadingGroupLinks> links_;
  std::vector<const ShadingGroupLinks*> entries_;  // of the table: null for a group that is not visible
  ShadingGroupTable table_;
};
