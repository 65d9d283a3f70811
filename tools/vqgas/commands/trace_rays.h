// tools/vqgas/commands/trace_rays.h
#pragma once
#include <istream>
#include <string>
#include <vector>

#include "vq_gmath/gmath_ray.h"

inline constexpr const char* trace_csv_header = "ray,distance,primitive,group,u,v,nx,ny,nz,x,y,z,path";

/// One ray as the user gave it.
struct TraceRay {
  GMathVec3<double> origin, direction;
  double tnear = 0.0, tfar = DBL_MAX, time = 0.0;
  bool has_time = false;
};

/// Reads "ox,oy,oz,dx,dy,dz[,tnear,tfar[,time]]". False when it is anything else.
bool parse_trace_ray(const std::string& text, TraceRay& ray);
/// Throws UsageError when one of the command line's rays cannot be read.
void check_trace_rays(const std::vector<std::string>& texts);
/// Reads one ray a line. Blank lines, lines that begin with # and a first line of column names are passed over. Throws
/// InputError with the number of the line that cannot be read.
std::vector<TraceRay> read_trace_rays(std::istream& input, const std::string& name);
