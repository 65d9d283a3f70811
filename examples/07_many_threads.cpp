// How do I query from many threads? A picture in text: its rows are drawn by the application's threads, then by threads
// of our own. Shared data is only read; each thread has its own shading context, evaluation context and packet.
#include <atomic>
#include <cmath>
#include <string>
#include <thread>

#include "examples/example_world.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

constexpr uint width = 64, height = 24;
using Picture = std::vector<std::string>;

/// Draws one row of a view from the front: the nearer the surface, the darker the letter.
std::string draw_row(const CtxEval& ctx, CtxShader& shader, const ExampleWorld& world, const GasObject& structure,
                     uint row) {
  GeometryRayPacket packet;
  packet.resize(width);
  for (uint x = 0; x < width; ++x)
    packet.set_ray(x, {8.0 * (x + 0.5) / width - 4, 3 - 6.0 * (row + 0.5) / height, 10}, {0, 0, -1});
  structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(world.shading));
  std::string line;
  for (uint x = 0; x < width; ++x)
    line += packet.get_nearest(x).geometry == nullptr ? ' ' : "@#*+=-:."[int(packet.get_nearest(x).distance - 6) & 7];
  return line;
}

/// A task for the application's threads. Each thread takes its own context from the table of the top-level context.
struct RowTask final : SysThreadTask {
  RowTask() { flags = counted | for_waiter; }
  void run(const uint& thread_index) override {
    CtxShader shader;
    *line = draw_row(world->ctx.get_or_create_thread_ctx(thread_index), shader, *world, *structure, row);
  }
  const ExampleWorld* world = nullptr;
  const GasObject* structure = nullptr;
  uint row = 0;
  std::string* line = nullptr;  ///< written by this task only: no lock
};

}  // namespace

int main() {
  ExampleWorld world;
  PolyMeshData data;
  for (uint k = 0; k < 40; ++k) {  // spiral stairs
    const float angle = 0.35f * k, x = 2.5f * std::cos(angle), z = 2.5f * std::sin(angle), y = -2.6f + 0.13f * k;
    add_box(data, {x - 0.6f, y - 0.15f, z - 0.6f}, {x + 0.6f, y + 0.15f, z + 0.6f});
  }
  PolyMesh mesh;
  create_mesh(mesh, std::move(data));
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);

  Picture pooled(height);
  std::vector<RowTask> tasks(height);
  SysThreadTaskManager group(world.app.get_thread_manager());
  for (uint row = 0; row < height; ++row) {
    tasks[row].world = &world;
    tasks[row].structure = &structure;
    tasks[row].row = row;
    tasks[row].line = &pooled[row];
    group.add_task(&tasks[row]);
  }
  group.wait_until_completed(/*help=*/true);  // meanwhile this thread draws rows too
  for (const std::string& line : pooled) std::printf("%s\n", line.c_str());

  Picture own(height);
  std::atomic<uint> next_row{0};
  std::vector<std::thread> threads;
  for (uint k = 0; k < 4; ++k) {
    threads.emplace_back([&] {
      const CtxEval ctx(world.ctx);
      CtxShader shader;
      for (uint row = next_row++; row < height; row = next_row++)
        own[row] = draw_row(ctx, shader, world, structure, row);
    });
  }
  for (std::thread& thread : threads) thread.join();
  expect(own == pooled, "the picture does not depend on the threads");
  uint drawn = 0;
  for (const std::string& line : own) drawn += line != std::string(width, ' ');
  expect(drawn > height / 2, "most rows show a stair");
}
