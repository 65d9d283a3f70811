#include "gas/structure/gas_leaf_records.h"

#include <cstring>

#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_geometry/geometry_object.h"

namespace {

/// The records of one slice of the leaves.
class RecordTask final : public GasTask {
 public:
  const AppBase* application = nullptr;  ///< null: never stopped
  const GeometryObject* geometry = nullptr;
  const uint* order = nullptr;
  const uint* primitives = nullptr;
  u8* records = nullptr;
  std::size_t size = 0;
  uint first = 0, end = 0;

  void write() const {
    for (uint place = first; place < end; ++place) {
      if (application != nullptr) gas_check_stop(*application, place - first);
      const uint item = order[place];
      geometry->write_record(primitives == nullptr ? item : primitives[item], records + place * size);
    }
  }

 private:
  void work(const uint& /*thread_index*/) override { write(); }
};

}  // namespace

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

void GasLeafRecords::make(const GeometryObject& geometry, const uint* order, uint count, const uint* primitives,
                          const AppBase* application, AppProgressBar* progress) {
  constexpr uint parallel_from = 4096;
  clear();
  const u32 size = geometry.get_record_size();
  CORE_ASSERT(size % 4 == 0);
  if (size == 0 || count == 0) return;
  CoreAlignedArray<u8> bytes(std::size_t{count} * size, 64);
  if (!bytes) return;
  const auto prepare = [&](RecordTask& task) {
    task.application = application;
    task.geometry = &geometry;
    task.order = order;
    task.primitives = primitives;
    task.records = bytes.get();
    task.size = size;
  };
  if (progress == nullptr || count < parallel_from) {
    RecordTask all;
    prepare(all);
    all.end = count;
    all.write();
  } else {
    SysThreadTaskManager manager(progress->get_application().get_thread_manager());
    const uint thread_count = manager.get_max_thread_count();
    gas_run_slices<RecordTask>(manager, count, gas_get_slice_length(count, thread_count), prepare);
  }
  bytes_ = std::move(bytes);
  size_ = size;
}
