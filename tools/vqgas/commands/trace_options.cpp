#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/commands/trace_rays.h"

Subcommand add_trace(CLI::App& app) {
  const auto shared = std::make_shared<TraceOptions>();
  TraceOptions& options = *shared;
  CLI::App* command = app.add_subcommand(
      "trace", "Shoot single rays and print what they hit, as CSV with the header\n" + std::string(trace_csv_header));
  command->add_option("FILE", options.file, get_file_help())->required();
  command
      ->add_option("--ray", options.rays, "A ray; repeatable. Without it rays are read from standard input, one a line")
      ->allow_extra_args(false)
      ->type_name("ox,oy,oz,dx,dy,dz[,tnear,tfar[,time]]");
  command->add_flag("--all", options.all, "All hits of each ray, nearest first, instead of the nearest");
  add_format_option(*command, options.format);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the hits as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Rays count from 0, distances are in units of the ray's direction, primitive is the polygon's number, shape by\n"
      "shape in the order of the file, group the number of its shading group, u and v the barycentric weights of the\n"
      "second and third corner of the triangle that was hit, nx,ny,nz the unit normal of the polygon as wound, path\n"
      "the numbers of the object and of those in its groups, and in a bundle that of the instance, object the name of\n"
      "the innermost object, names those of all objects of the path. A miss is a row with the ray's number.\n"
      "Of hair the primitive is the segment, u runs along it, v around it, and the normal points outwards.\n"
      "Example:\n  vqgas trace bunny.obj --ray 0,0.1,1,0,0,-1 --all\n  vqgas trace demo:knot <rays.csv >hits.csv");
  return {command, [shared] { check_trace_rays(shared->rays); }, [shared] { run_trace(*shared); }};
}
