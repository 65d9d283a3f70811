// host/vq_geometry/displaced_mesh_cache.h
//
// A cache of tiles with a limit in bytes, shared by all threads. Tiles are spread over shards by their key; each shard
// has a lock and drops the tiles that were used least recently. What is cached changes the time that a query takes,
// never its answer: a tile has the same bytes whenever it is computed.
#pragma once
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "vq_geometry/displaced_mesh_tile.h"
#include "vq_sys/sys_thread_lock.h"

struct DisplacedMeshTileKey {
  u64 tile = 0;          ///< among the tiles of all patches
  uint first_frame = 0;  ///< 0: at rest; 1 + k: motion sample k, and the next one if there is one
  bool operator==(const DisplacedMeshTileKey&) const = default;
};

class DisplacedMeshCache {
 public:
  /// Keeps the tile alive: a tile that a query uses may be dropped from the cache meanwhile.
  using Pin = std::shared_ptr<const DisplacedMeshTile>;

  /// @param limit       bytes of tiles kept at most; 0: none
  /// @param tile_bytes  of the largest tile: a shard should have space for some of them
  DisplacedMeshCache(u64 limit, u64 tile_bytes);

  /// Null when the tile is not cached. Does not allocate. Thread-safe.
  Pin find(const DisplacedMeshTileKey& key);
  /// Adds a tile and drops others to make space. Returns the tile to be used: if another thread was faster, its own.
  /// Throws std::bad_alloc; the cache is then as before. Thread-safe.
  Pin insert(const DisplacedMeshTileKey& key, Pin tile);
  u64 get_limit() const { return shard_limit_ * shards_.size(); }
  /// Bytes held, this object included; without the lists of the tiles.
  u64 get_memory_size() const {
    return sizeof(*this) + shards_.capacity() * sizeof(Shard) + bytes_.now.load(std::memory_order_relaxed);
  }
  /// Bytes of all tiles, also of those that only a query still uses.
  DisplacedMeshTileBytes& get_bytes() { return bytes_; }

 private:
  struct Entry {
    DisplacedMeshTileKey key;
    Pin tile;
  };
  struct Hash {
    std::size_t operator()(const DisplacedMeshTileKey& key) const;
  };
  /// A line of its own per lock.
  struct alignas(64) Shard {
    SysThreadLock lock;
    std::list<Entry> entries;  // used last: first
    std::unordered_map<DisplacedMeshTileKey, std::list<Entry>::iterator, Hash> places;
    u64 bytes = 0;
  };
  Shard& get_shard(const DisplacedMeshTileKey& key) { return shards_[Hash()(key) >> 32 & (shards_.size() - 1)]; }

  DisplacedMeshTileBytes bytes_;
  std::vector<Shard> shards_;  // a power of two
  u64 shard_limit_;
};
