#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// Bytes and their places in a file. What is added last counts, and neighbours are joined.
class Disk_Extents {
public:
  void Add(std::uint32_t offset, std::string_view bytes);
  bool IsEmpty() const { return extents_.empty(); }
  void Clear() { extents_.clear(); }
  /// Whether all bytes from `offset` to `offset + size` are among them.
  bool Cover(std::uint32_t offset, std::uint32_t size) const;
  /// Lays them over `count` bytes that were read from `offset`; what the file was too short for is added.
  void LayOver(char* data, std::uint32_t size, std::uint32_t offset, long* count) const;

  std::size_t Size() const { return extents_.size(); }
  auto begin() const { return extents_.begin(); }
  auto end() const { return extents_.end(); }
  friend bool operator==(Disk_Extents const&, Disk_Extents const&) = default;

private:
  using Map = std::map<std::uint64_t, std::string>;
  static std::uint64_t end_of(Map::value_type const& extent) { return extent.first + extent.second.size(); }
  /// The extent that `offset` stands in or follows; otherwise the next one behind it.
  Map::const_iterator at(std::uint64_t offset) const;

  Map extents_; // by their offsets
};
