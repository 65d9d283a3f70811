#include "fuzz/fuzz_mutator.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace {

/// SplitMix64 (Steele, Lea, Flood 2014).
class FuzzRandom {
 public:
  explicit FuzzRandom(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  /// In [0, count); 0 for a count of 0.
  std::size_t pick(std::size_t count) { return count == 0 ? 0 : next() % count; }
  template <class List>
  const auto& pick_from(const List& list) {
    return list[pick(std::size(list))];
  }

 private:
  std::uint64_t state_;
};

constexpr const char* tokens[] = {
    "nan",  "inf",    "-inf",  "-1",          "0",          "1",          "1e999",      "-1e999",
    "1e38", "1e-320", "1e300", "2147483647",  "2147483648", "4294967295", "4294967296", "-2147483648",
    "255",  "65535",  "65536", "99999999",    "1e9",        "0x10",       "1.5",        "18446744073709551615",
    "",     "\"",     "{",     "]",           "#",          "\n",         "\xff\xfe",   "9999999999999999999999999",
    "/",    "//",     "..",    "-4294967297", "null",       "true",       "[]",         "{}"};

constexpr std::uint64_t boundary_numbers[] = {0,
                                              1,
                                              2,
                                              0x7f,
                                              0x80,
                                              0xff,
                                              0x7fff,
                                              0x8000,
                                              0xffff,
                                              0x10000,
                                              0x01000000,
                                              0x3fffffff,
                                              0x40000000,
                                              0x7fffffff,
                                              0x80000000,
                                              0xfffffffe,
                                              0xffffffff,
                                              0x7f800000,
                                              0x7fc00000,
                                              0xff800000,
                                              0x7f7fffff,
                                              0x00000001,
                                              0x7ff0000000000000,
                                              0x7fffffffffffffff,
                                              0xffffffffffffffff};

bool is_token_letter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' ||
         c == '+' || c == '_';
}

/// A piece of up to 64 bytes, or of text some lines.
struct Chunk {
  std::size_t begin, size;
};

class Mutator {
 public:
  Mutator(const FuzzKind& kind, FuzzRandom& random)
      : kind_(kind), random_(random), seed_(random.pick_from(kind.seeds)) {
    bytes_ = seed_.bytes;
  }

  FuzzFile make() {
    for (std::size_t left = 1 + random_.pick(1 + random_.pick(4)); left > 0; --left) damage();
    constexpr std::size_t most_bytes = 16384;
    if (bytes_.size() > most_bytes) bytes_.resize(most_bytes);
    return {seed_.extension, bytes_};
  }

 private:
  void damage() {
    if (seed_.is_text && random_.pick(2) == 0) return replace_token();
    switch (random_.pick(8)) {
      case 0:
        return flip_bits();
      case 1:
      case 2:
        return overwrite_number();
      case 3:
        return delete_chunk();
      case 4:
        return duplicate_chunk();
      case 5:
        return swap_chunks();
      case 6:
        return random_.pick(2) == 0 ? bytes_.resize(random_.pick(bytes_.size() + 1)) : insert_noise();
      default:
        return splice();
    }
  }

  void flip_bits() {
    for (std::size_t left = 1 + random_.pick(8); left > 0 && !bytes_.empty(); --left)
      bytes_[random_.pick(bytes_.size())] ^= static_cast<char>(1u << random_.pick(8));
  }

  /// In 1, 2, 4 or 8 bytes, of either byte order, mostly aligned as headers are.
  void overwrite_number() {
    const std::size_t size = std::size_t{1} << random_.pick(4);
    if (bytes_.size() < size) return;
    std::uint64_t number = random_.pick_from(boundary_numbers);
    if (random_.pick(8) == 0) number = random_.next();
    std::array<char, 8> from = std::bit_cast<std::array<char, 8>>(number);
    if (random_.pick(2) == 0) std::reverse(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(size));
    std::size_t at = random_.pick(bytes_.size() - size + 1);
    if (random_.pick(4) != 0) at -= at % size;
    std::memcpy(bytes_.data() + at, from.data(), size);
  }

  void replace_token() {
    const std::size_t start = random_.pick(bytes_.size());
    const auto letter =
        std::find_if(bytes_.begin() + static_cast<std::ptrdiff_t>(start), bytes_.end(), is_token_letter);
    const auto end = std::find_if_not(letter, bytes_.end(), is_token_letter);
    auto begin = letter;
    while (begin != bytes_.begin() && is_token_letter(begin[-1])) --begin;
    bytes_.replace(begin, end, random_.pick_from(tokens));
  }

  Chunk pick_chunk() {
    if (!seed_.is_text || random_.pick(4) == 0) {
      const std::size_t begin = random_.pick(bytes_.size());
      return {begin, std::min(1 + random_.pick(64), bytes_.size() - begin)};
    }
    const std::size_t line = bytes_.rfind('\n', random_.pick(bytes_.size()));
    const std::size_t begin = line == std::string::npos ? 0 : line + 1;
    std::size_t end = begin;
    for (std::size_t left = 1 + random_.pick(4); left > 0 && end < bytes_.size(); --left)
      end = std::min(bytes_.find('\n', end), bytes_.size() - 1) + 1;
    return {begin, end - begin};
  }

  void delete_chunk() {
    const Chunk chunk = pick_chunk();
    bytes_.erase(chunk.begin, chunk.size);
  }

  /// Up to 64 times, as recursion and lists within lists need.
  void duplicate_chunk() {
    const Chunk chunk = pick_chunk();
    const std::string copy = bytes_.substr(chunk.begin, chunk.size);
    for (std::size_t left = std::size_t{1} << random_.pick(random_.pick(8)); left > 0; --left)
      bytes_.insert(chunk.begin, copy);
  }

  void swap_chunks() {
    const Chunk from = pick_chunk();
    const std::string taken = bytes_.substr(from.begin, from.size);
    bytes_.erase(from.begin, from.size);
    bytes_.insert(random_.pick(bytes_.size() + 1), taken);
  }

  void insert_noise() {
    std::string noise(1 + random_.pick(16), '\0');
    for (char& c : noise) c = static_cast<char>(random_.next());
    bytes_.insert(random_.pick(bytes_.size() + 1), noise);
  }

  /// The first part of this file and the last part of another one, cut at the same share or anywhere.
  void splice() {
    const std::string& other = random_.pick_from(kind_.seeds).bytes;
    const std::size_t cut = random_.pick(bytes_.size() + 1);
    const std::size_t from = random_.pick(2) == 0 ? std::min(cut, other.size()) : random_.pick(other.size() + 1);
    bytes_ = bytes_.substr(0, cut) + other.substr(from);
  }

  const FuzzKind& kind_;
  FuzzRandom& random_;
  const FuzzSeed& seed_;
  std::string bytes_;
};

/// Corrects the checksums of a PNG file's chunks: a wrong one hides what is behind it from the reader.
void repair_png(std::string& bytes) {
  constexpr std::size_t signature = 8, around = 12;  // length, name and checksum
  const auto get_u32 = [&](std::size_t at) {
    std::size_t value = 0;
    for (std::size_t k = 0; k < 4; ++k) value = value << 8 | static_cast<unsigned char>(bytes[at + k]);
    return value;
  };
  for (std::size_t at = signature; at + around <= bytes.size();) {
    const std::size_t size = get_u32(at);
    if (size > bytes.size() - at - around) return;
    const uLong sum = crc32(0, reinterpret_cast<const Bytef*>(bytes.data() + at + 4), static_cast<uInt>(size + 4));
    for (std::size_t k = 0; k < 4; ++k) bytes[at + 8 + size + k] = static_cast<char>(sum >> (24 - 8 * k));
    at += around + size;
  }
}

}  // namespace

FuzzFile make_fuzz_file(const FuzzKind& kind, std::uint64_t random_seed, std::uint64_t number) {
  FuzzRandom mixed(random_seed ^ kind.name.front());
  FuzzRandom random(mixed.next() + number * 0xd1342543de82ef95u);
  FuzzFile file = Mutator(kind, random).make();
  if (file.extension == "png" && random.pick(8) != 0) repair_png(file.bytes);
  return file;
}
