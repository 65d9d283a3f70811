#include "vq_ctx/ctx_eval.h"

#include <vector>

#include "vq_app_base/app_base.h"
#include "vq_core/core_assert.h"
#include "vq_of/of_object_factory.h"
#include "vq_sys/sys_thread_manager.h"

struct CtxEval::ThreadTable {
  std::vector<std::unique_ptr<CtxEval>> entries;
};

CtxEval::CtxEval(OfObjectFactory& factory) : factory_(&factory), owned_table_(std::make_shared<ThreadTable>()) {
  table_ = owned_table_.get();
  const SysThreadManager& threads = get_application().get_thread_manager();
  table_->entries.resize(threads.get_thread_count() + SysThreadManager::guest_count);
}

// A thread's context lives in the table, so it must not own the table as well: only the raw pointer is taken.
CtxEval::CtxEval(const CtxEval& parent, uint thread_index)
    : factory_(parent.factory_),
      table_(parent.table_),
      thread_index_(thread_index),
      motion_blur_(parent.motion_blur_),
      time_(parent.time_) {}

CtxEval::CtxEval(const CtxEval& other) = default;
CtxEval::~CtxEval() = default;

AppBase& CtxEval::get_application() const { return *factory_->get_application(); }

uint CtxEval::get_thread_ctx_count() const { return static_cast<uint>(table_->entries.size()); }

CtxEval* CtxEval::get_thread_ctx(const uint& index) const { return table_->entries[index].get(); }

CtxEval& CtxEval::create_thread_ctx(const uint& index) const {
  CORE_ASSERT(index < get_thread_ctx_count());
  table_->entries[index].reset(new CtxEval(*this, index));
  return *table_->entries[index];
}

CtxEval& CtxEval::get_or_create_thread_ctx(const uint& index) const {
  CtxEval* existing = get_thread_ctx(index);
  if (existing == nullptr) return create_thread_ctx(index);
  existing->motion_blur_ = motion_blur_;
  existing->time_ = time_;
  return *existing;
}
