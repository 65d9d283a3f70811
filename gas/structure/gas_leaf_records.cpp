#include "gas/structure/gas_leaf_records.h"

#include <cstring>

#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_geometry/geometry_object.h"

/// The records of one slice of the leaves.
class GasLeafRecordWork::Task final : public GasTask {
 public:
  GasLeafRecordWork* owner = nullptr;
  const uint* order = nullptr;
  uint first = 0, end = 0;

  void work(const uint& /*thread_index*/) override {
    for (uint place = first; place < end; ++place) {
      if (owner->application_ != nullptr) gas_check_stop(*owner->application_, place - first);
      const uint item = order[place];
      const uint primitive = owner->primitives_ == nullptr ? item : owner->primitives_[item];
      owner->geometry_->write_record(primitive, owner->bytes_.get() + std::size_t{place} * owner->size_);
    }
  }
};

GasLeafRecordWork::GasLeafRecordWork(const GeometryObject* geometry, const uint* primitives, const AppBase* application)
    : geometry_(geometry),
      primitives_(primitives),
      application_(application),
      size_(geometry != nullptr ? geometry->get_record_size() : 0) {
  CORE_ASSERT(size_ % 4 == 0);
}

GasLeafRecordWork::~GasLeafRecordWork() = default;

void GasLeafRecordWork::divide(const uint* order, uint count, uint length) {
  if (size_ == 0 || count == 0) return;
  bytes_ = CoreAlignedArray<u8>(std::size_t{count} * size_, 64);
  if (!bytes_) return;
  tasks_.resize(gas_get_slice_count(count, length));
  for (uint k = 0; k < tasks_.size(); ++k) {
    tasks_[k].owner = this;
    tasks_[k].order = order;
    tasks_[k].first = k * length;
    tasks_[k].end = std::min(tasks_[k].first + length, count);
  }
}

void GasLeafRecordWork::start(SysThreadTaskManager& tasks, const uint* order, uint count) {
  is_started_ = true;
  divide(order, count, gas_get_slice_length(count, tasks.get_max_thread_count()));
  for (Task& task : tasks_) tasks.add_task(&task);
}

GasLeafRecords::GasLeafRecords(const GasLeafRecords& other)
    : bytes_(other.bytes_.get_count(), 64), size_(bytes_ ? other.size_ : 0) {
  if (size_ != 0) std::memcpy(bytes_.get(), other.bytes_.get(), bytes_.get_count());
}

GasLeafRecords& GasLeafRecords::operator=(const GasLeafRecords& other) {
  if (this == &other) return *this;
  GasLeafRecords copy(other);
  bytes_ = std::move(copy.bytes_);
  size_ = copy.size_;
  return *this;
}

void GasLeafRecords::make(GasLeafRecordWork& work, const uint* order, uint count) {
  if (!work.is_started_) {
    work.divide(order, count, count);
    for (GasLeafRecordWork::Task& task : work.tasks_) task.run(0);
  }
  for (const GasLeafRecordWork::Task& task : work.tasks_) gas_rethrow(task.get_outcome());
  if (!work.bytes_) return;
  bytes_ = std::move(work.bytes_);
  size_ = work.size_;
}
