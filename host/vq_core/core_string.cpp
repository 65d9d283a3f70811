// host/vq_core/core_string.cpp
#include "vq_core/core_string.h"

CoreString& CoreString::append(std::string_view more) {
  text_.append(more);
  return *this;
}
