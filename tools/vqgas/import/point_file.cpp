#include "tools/vqgas/import/point_file.h"

#include <new>

#include "tools/vqgas/import/point_ply.h"
#include "tools/vqgas/import/point_text.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/memory_limit.h"

bool is_point_file(const std::string& path) {
  const std::string extension = get_extension(path);
  return extension == ".xyz" || extension == ".pts" || extension == ".csv" ||
         (extension == ".ply" && is_point_ply(path));
}

PointSource read_points(const std::string& path, const PointReading& reading) {
  check_input_file(path);
  try {
    const MemoryLimit limit;
    const PointCollecting collecting{reading, limit.get_bytes()};
    const std::string extension = get_extension(path);
    if (extension == ".ply") return read_point_ply(path, collecting);
    if (extension == ".pts") return read_point_blocks(path, collecting);
    return read_point_table(path, extension == ".csv", collecting);
  } catch (const std::bad_alloc&) {
    throw InputError(path, "asks for more memory than there is");
  }
}
