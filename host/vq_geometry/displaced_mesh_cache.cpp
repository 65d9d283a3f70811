#include "vq_geometry/displaced_mesh_cache.h"

#include <iterator>
#include <utility>

namespace {

/// More than the threads of any machine that renders, and a power of two.
constexpr uint most_shards = 256;

/// With fewer in a shard, a few keys that meet there would drop each other while others have space.
constexpr u64 least_tiles_of_shard = 32;

uint choose_shard_count(u64 limit, u64 tile_bytes) {
  uint count = 1;
  while (count < most_shards && limit / (2 * count) >= least_tiles_of_shard * tile_bytes) count *= 2;
  return count;
}

}  // namespace

DisplacedMeshCache::DisplacedMeshCache(u64 limit, u64 tile_bytes)
    : shards_(choose_shard_count(limit, tile_bytes)), shard_limit_(limit / shards_.size()) {}

std::size_t DisplacedMeshCache::Hash::operator()(const DisplacedMeshTileKey& key) const {
  u64 value = (key.tile + u64{key.first_frame} * 0x9E3779B97F4A7C15ull) * 0xBF58476D1CE4E5B9ull;
  value = (value ^ (value >> 31)) * 0x94D049BB133111EBull;
  return value ^ (value >> 29);
}

DisplacedMeshCache::Pin DisplacedMeshCache::find(const DisplacedMeshTileKey& key) {
  Shard& shard = get_shard(key);
  const SysThreadLockGuard guard(shard.lock);
  const auto place = shard.places.find(key);
  if (place == shard.places.end()) return nullptr;
  shard.entries.splice(shard.entries.begin(), shard.entries, place->second);
  return place->second->tile;
}

DisplacedMeshCache::Pin DisplacedMeshCache::insert(const DisplacedMeshTileKey& key, Pin tile) {
  const u64 bytes = tile->get_bytes();
  if (bytes > shard_limit_) return tile;
  Shard& shard = get_shard(key);
  std::list<Entry> added, dropped;
  added.push_front({key, std::move(tile)});  // memory is taken, and that of dropped tiles returned, outside of the lock
  const SysThreadLockGuard guard(shard.lock);
  const auto [place, is_new] = shard.places.try_emplace(key, added.begin());
  if (!is_new) return place->second->tile;
  shard.entries.splice(shard.entries.begin(), added);
  shard.bytes += bytes;
  while (shard.bytes > shard_limit_) {
    shard.bytes -= shard.entries.back().tile->get_bytes();
    shard.places.erase(shard.entries.back().key);
    dropped.splice(dropped.begin(), shard.entries, std::prev(shard.entries.end()));
  }
  return shard.entries.front().tile;
}
