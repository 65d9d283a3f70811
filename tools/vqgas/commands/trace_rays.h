// tools/vqgas/commands/trace_rays.h
#pragma once
#include <string>
#include <vector>

#include "vq_gmath/gmath_ray.h"

inline constexpr const char* trace_csv_header = "ray,distance,primitive,group,u,v,nx,ny,nz,x,y,z,path,object,names";

inline constexpr const char* trace_ray_form = "ox,oy,oz,dx,dy,dz[,tnear,tfar[,time]]";

/// A ray of the command line or of standard input.
struct TraceRay {
  GMathVec3<double> origin, direction;
  double tnear = 0.0, tfar = DBL_MAX, time = 0.0;
  bool has_time = false;
};

/// Parses "ox,oy,oz,dx,dy,dz[,tnear,tfar[,time]]". False for any other text.
bool parse_trace_ray(const std::string& text, TraceRay& ray);
/// Throws UsageError when a ray of the command line cannot be parsed.
void check_trace_rays(const std::vector<std::string>& texts);
