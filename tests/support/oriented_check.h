// tests/support/oriented_check.h
//
// A walk through a tree over fibres with nodes of all three kinds, at rest or at a motion sample: every lane must hold
// the balls of the segments below it.
#pragma once
#include <algorithm>
#include <sstream>
#include <string>

#include "gas/bvh/gas_bvh_motion.h"
#include "support/curve_oracle.h"

class OrientedCheck {
 public:
  OrientedCheck(const GasBvh<4>& tree, CurveOracle oracle, const GasBvhMotion<4>* motion = nullptr, uint sample = 0)
      : tree_(tree), oracle_(std::move(oracle)), motion_(motion), sample_(sample) {}

  uint lanes_of_kind[4] = {0, 0, 0, 0};  ///< used lanes by kind of their node

  /// The first thing that is wrong, or an empty text. `tight`: also whether boxes are larger than they need be, by more
  /// than what is between the oracle's balls, the steps of 8 bits and a margin.
  std::string find_fault(bool tight) {
    if (tree_.is_empty()) return {};
    std::ostringstream fault;
    const Box root = motion_ != nullptr ? motion_->get_bbox(sample_) : tree_.box;
    bounds_ = GMathBbox3<double>(root);
    bounds_.add(GMathBbox3<double>(tree_.box));
    std::vector<uint> items = walk(tree_.root, root, false, tight, fault);
    std::vector<uint> order(tree_.order, tree_.order + tree_.item_count);
    std::sort(items.begin(), items.end());
    std::sort(order.begin(), order.end());
    if (items != order) fault << "leaves are not the item order; ";
    if (nodes_of_kind_[0] != tree_.aligned_count || nodes_of_kind_[1] != tree_.quantized_count ||
        nodes_of_kind_[2] != tree_.oriented_count)
      fault << "nodes are missing from the tree; ";
    return fault.str();
  }

 private:
  using Box = GMathBbox3<float>;
  struct Lane {
    BvhChildRef child;
    Box box;
  };

  Lane get_lane(BvhChildRef node, uint lane, const Box& frame) const {
    if (node.word & 0x400) {
      const Box unit({0, 0, 0}, {1, 1, 1});
      return {tree_.oriented[node.index].child[lane],
              motion_ != nullptr ? motion_->get_oriented(node.index, sample_).get_lane(lane) : unit};
    }
    if ((node.word & 0x200) == 0) {
      return {tree_.aligned[node.index].child[lane], motion_ != nullptr
                                                         ? motion_->get_aligned(node.index, sample_).get_lane(lane)
                                                         : tree_.aligned[node.index].lanes.get_lane(lane)};
    }
    const BvhLaneBytes& bytes =
        motion_ != nullptr ? motion_->get_quantized(node.index, sample_) : tree_.quantized[node.index].lanes;
    Box box;
    for (uint axis = 0; axis < 3; ++axis) {
      const float step = (frame.max[axis] - frame.min[axis]) / 255.0f;
      box.min[axis] = frame.min[axis] + static_cast<float>(bytes.planes[2 * axis][lane]) * step;
      box.max[axis] = frame.min[axis] + static_cast<float>(bytes.planes[2 * axis + 1][lane]) * step;
    }
    return {tree_.quantized[node.index].get_child(lane), box};
  }

  std::vector<uint> walk(BvhChildRef node, const Box& frame, bool below_oriented, bool tight, std::ostream& fault) {
    if (node.word & 0x100) return {tree_.order + node.index, tree_.order + node.index + (node.word & 0xff)};
    const uint kind = node.word & 0x400 ? 2 : node.word & 0x200 ? 1 : 0;
    ++nodes_of_kind_[kind];
    if (below_oriented && kind == 1) fault << "a quantized child of an oriented node; ";
    std::vector<uint> all;
    for (uint lane = 0; lane < 4; ++lane) {
      const Lane at = get_lane(node, lane, frame);
      if (lane < (node.word & 0xff)) {
        const std::vector<uint> items = walk(at.child, at.box, kind == 2, tight, fault);
        ++lanes_of_kind[static_cast<uint>(node.get_kind())];
        for (uint axis = 0; axis < 3; ++axis) check_axis(node, lane, axis, frame, at.box, items, tight, fault);
        all.insert(all.end(), items.begin(), items.end());
      } else {
        if (!at.child.is_empty()) fault << "a reference in an unused lane; ";
        for (uint k = 0; k < 12 && kind == 2; ++k)
          if (tree_.oriented[node.index].rows[k][lane] != 0.0f) fault << "a frame in an unused lane; ";
        if (kind != 1 && (kind == 0 || motion_ != nullptr) && at.box != Box()) fault << "a box in an unused lane; ";
      }
    }
    return all;
  }

  void check_axis(BvhChildRef node, uint lane, uint axis, const Box& frame, const Box& box,
                  const std::vector<uint>& items, bool tight, std::ostream& fault) const {
    GMathVec3<double> row;
    row[axis] = 1.0;
    double offset = 0.0, slack = 0.0;
    if (node.word & 0x400) {
      const auto& rows = tree_.oriented[node.index].rows;
      for (uint k = 0; k < 3; ++k) {
        row[k] = rows[4 * axis + k][lane];
        // What the ray test allows for rounding.
        slack += std::fabs(row[k]) * std::max(std::fabs(bounds_.min[k]), std::fabs(bounds_.max[k])) * 0x1p-20;
      }
      offset = rows[4 * axis + 3][lane];
    }
    double low = HUGE_VAL, high = -HUGE_VAL;
    for (const uint item : items) {
      for (const CurveOracle::Ball& ball : oracle_.get_segments()[item].balls) {
        const double middle = row.dot(ball.position) + offset, reach = ball.radius * row.get_length();
        low = std::min(low, middle - reach);
        high = std::max(high, middle + reach);
      }
    }
    const double width = frame.max[axis] - frame.min[axis];
    const bool is_quantized = (node.word & 0x200) != 0;
    if (is_quantized) slack = 1e-6 * width + 0x1p-22 * (std::fabs(low) + std::fabs(high));
    // Bases that are converted are rounded when they are stored.
    slack += 0x1p-22 * (std::fabs(low - offset) + std::fabs(high - offset));
    const double much = 0.05 * (high - low) + 4 * slack + (is_quantized ? width / 100.0 : 0.0);
    if (low < box.min[axis] - slack || high > box.max[axis] + slack) {
      fault << "a lane cuts its items: axis " << axis << " of " << node.word << ":" << node.index << ", " << low
            << " to " << high << " in " << box.min[axis] << " to " << box.max[axis] << "; ";
    } else if (tight && (low - box.min[axis] > much || box.max[axis] - high > much)) {
      fault << "a lane is too large: axis " << axis << " of " << node.word << ":" << node.index << ", " << low << " to "
            << high << " in " << box.min[axis] << " to " << box.max[axis] << "; ";
    }
  }

  const GasBvh<4>& tree_;
  CurveOracle oracle_;
  const GasBvhMotion<4>* motion_;
  uint sample_;
  GMathBbox3<double> bounds_;  ///< of all that matters, at rest and at the sample
  uint nodes_of_kind_[3] = {0, 0, 0};
};
