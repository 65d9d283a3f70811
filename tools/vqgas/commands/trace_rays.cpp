#include "tools/vqgas/commands/trace_rays.h"

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/number_list.h"

bool parse_trace_ray(const std::string& text, TraceRay& ray) {
  const std::vector<double> v = parse_numbers(text, ',');
  if (v.size() != 6 && v.size() != 8 && v.size() != 9) return false;
  ray = TraceRay();
  ray.origin = {v[0], v[1], v[2]};
  ray.direction = {v[3], v[4], v[5]};
  if (v.size() >= 8) ray.tnear = v[6], ray.tfar = v[7];
  ray.has_time = v.size() == 9;
  if (ray.has_time) ray.time = v[8];
  return true;
}

void check_trace_rays(const std::vector<std::string>& texts) {
  TraceRay ray;
  for (const std::string& text : texts) {
    if (!parse_trace_ray(text, ray)) throw UsageError("--ray: '" + text + "' is not " + trace_ray_form);
  }
}
