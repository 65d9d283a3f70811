// host/vq_sys/sys_thread_task.cpp
#include "vq_sys/sys_thread_task.h"

SysThreadTask::~SysThreadTask() = default;
