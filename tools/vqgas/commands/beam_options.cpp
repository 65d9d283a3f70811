#include "tools/vqgas/commands/beam_input.h"
#include "tools/vqgas/commands/option_groups.h"

Subcommand add_beam(CLI::App& app) {
  const auto shared = std::make_shared<BeamOptions>();
  BeamOptions& options = *shared;
  CLI::App* command = app.add_subcommand(
      "beam", "Cast single beams at point clouds and print the nearest point in each, as CSV with the header\n" +
                  std::string(beam_csv_header));
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option("--beam", options.beams,
                   "A beam; repeatable. Without it beams are read from standard input, one a line")
      ->allow_extra_args(false)
      ->type_name("ox,oy,oz,dx,dy,dz,SIZE[,tnear,tfar]");
  command->add_flag("--parallel", options.is_parallel,
                    "Beams of constant width: SIZE is the width; without it the angle in degrees");
  command
      ->add_option("--edge", options.edge,
                   "Points in the border of a beam, 0.5 / EDGE of its width, have another weight: 1 on the border, "
                   "falling to 0 at the border's inner end")
      ->capture_default_str()
      ->check(is_positive_number());
  add_frame_option(*command, options.frame);
  add_fps_option(*command, options.frames_per_second);
  add_format_option(*command, options.format);
  add_common_options(*command, options, "Write the points as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Beams count from 0, t is in units of the direction, object and point are the numbers of the object and of the\n"
      "point in its cloud. A beam without a point is a row with its number. The cross-section is a square "
      "with upright\nsides; instead of SIZE a beam may have four corners in a ring, as x,y,z each: directions from the "
      "origin, or\n"
      "with --parallel offsets.\n"
      "Example:\n  vqgas beam scan.ply --beam 0,0.1,1,0,0,-1,0.5\n  vqgas beam demo:galaxy <beams.csv >points.csv");
  const auto check = [shared] { check_beams(shared->beams, shared->is_parallel); };
  return {command, check, [shared] { run_beam(*shared); }};
}
