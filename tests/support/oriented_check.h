// tests/support/oriented_check.h
//
// A walk through a tree over curves with nodes of all three kinds, at rest or at a motion sample: every lane must hold
// the balls of the segments below it, an oriented one with room for what rounding takes from the ray test.
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

  /// What is wrong, or an empty text.
  std::string find_fault() {
    if (tree_.is_empty()) return {};
    const Box root = motion_ != nullptr ? motion_->get_bbox(sample_) : tree_.box;
    std::vector<uint> items = walk(tree_.root, root, false);
    std::vector<uint> order(tree_.order, tree_.order + tree_.item_count);
    std::sort(items.begin(), items.end());
    std::sort(order.begin(), order.end());
    if (items != order) fault_ << "leaves are not the item order; ";
    return fault_.str();
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
      const BvhNodeAligned& aligned = tree_.aligned[node.index];
      const BvhLanePlanes& planes = motion_ != nullptr ? motion_->get_aligned(node.index, sample_) : aligned.lanes;
      return {aligned.child[lane], planes.get_lane(lane)};
    }
    const BvhNodeQuantized& quantized = tree_.quantized[node.index];
    const BvhLaneBytes& bytes = motion_ != nullptr ? motion_->get_quantized(node.index, sample_) : quantized.lanes;
    const GMathVec3<float> step = (frame.max - frame.min) * (1.0f / 255.0f);
    Box box;
    for (uint axis = 0; axis < 3; ++axis) {
      box.min[axis] = frame.min[axis] + static_cast<float>(bytes.planes[2 * axis][lane]) * step[axis];
      box.max[axis] = frame.min[axis] + static_cast<float>(bytes.planes[2 * axis + 1][lane]) * step[axis];
    }
    return {quantized.get_child(lane), box};
  }

  std::vector<uint> walk(BvhChildRef node, const Box& frame, bool below_oriented) {
    if (node.word & 0x100) return {tree_.order + node.index, tree_.order + node.index + (node.word & 0xff)};
    if (below_oriented && (node.word & 0x200)) fault_ << "a quantized child of an oriented node; ";
    std::vector<uint> all;
    for (uint lane = 0; lane < 4; ++lane) {
      const Lane at = get_lane(node, lane, frame);
      if (lane >= (node.word & 0xff)) {
        if (!at.child.is_empty()) fault_ << "a reference in an unused lane; ";
        for (uint k = 0; k < 12 && (node.word & 0x400); ++k)
          if (tree_.oriented[node.index].rows[k][lane] != 0.0f) fault_ << "a frame in an unused lane; ";
        continue;
      }
      const std::vector<uint> items = walk(at.child, at.box, (node.word & 0x400) != 0);
      ++lanes_of_kind[static_cast<uint>(node.get_kind())];
      for (uint axis = 0; axis < 3; ++axis) check_axis(node, lane, axis, frame, at.box, items);
      all.insert(all.end(), items.begin(), items.end());
    }
    return all;
  }

  void check_axis(BvhChildRef node, uint lane, uint axis, const Box& frame, const Box& box,
                  const std::vector<uint>& items) {
    GMathVec3<double> row;
    row[axis] = 1.0;
    double offset = 0.0, slack = 0.0;
    if (node.word & 0x400) {
      const auto& rows = tree_.oriented[node.index].rows;
      for (uint k = 0; k < 3; ++k) row[k] = rows[4 * axis + k][lane];
      offset = rows[4 * axis + 3][lane];
    }
    const double length = row.get_length(), roundings = node.word & 0x400 ? 0x1p-20 : 0.0;  // 16
    double low = HUGE_VAL, high = -HUGE_VAL;
    for (const uint item : items) {
      for (const CurveOracle::Ball& ball : oracle_.get_segments()[item].balls) {
        const double room = roundings * std::max(ball.position.get_length() * length, std::fabs(offset));
        const double middle = row.dot(ball.position) + offset, reach = ball.radius * length + room;
        low = std::min(low, middle - reach);
        high = std::max(high, middle + reach);
      }
    }
    if (node.word & 0x200)
      slack = 1e-6 * (frame.max[axis] - frame.min[axis]) + 0x1p-22 * (std::fabs(low) + std::fabs(high));
    // Bases that are converted are rounded when they are stored.
    slack += 0x1p-22 * (std::fabs(low - offset) + std::fabs(high - offset));
    if (low < box.min[axis] - slack || high > box.max[axis] + slack)
      fault_ << "a lane cuts its items: axis " << axis << " of " << node.word << ":" << node.index << ", " << low
             << " to " << high << " in " << box.min[axis] << " to " << box.max[axis] << "; ";
  }

  const GasBvh<4>& tree_;
  CurveOracle oracle_;
  const GasBvhMotion<4>* motion_;
  uint sample_;
  std::ostringstream fault_;
};
