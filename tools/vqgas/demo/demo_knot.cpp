#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"

MeshSource make_demo_knot() {
  MeshBuilder builder;
  const uint group = builder.add_group("knot", color_from_srgb(0xd98e5f));
  add_tube(builder, get_trefoil_point, 720, 60, 0.34, group);
  return builder.finish();
}
