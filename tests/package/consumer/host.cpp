#include "vq_sys/sys_thread_manager.h"

int main() {
  const SysThreadManager manager(2);
  return manager.get_thread_count() == 2 ? 0 : 1;
}
