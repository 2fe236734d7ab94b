#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace voip {

/// A bounded map whose entries are in lists, each ordered by the time at which an entry was inserted or last touched.
/// The oldest entry of a list is found at once, so an owner evicts by kind and age in constant time. The table is
/// allocated as a whole, so entries never move; the system provides its memory page by page as entries are added. The
/// caller hashes the keys, with a seed where an attacker can choose them.
template <class Key, class Value, std::size_t kLists = 1>
class LruTable {
 public:
  explicit LruTable(std::size_t capacity) : capacity_(capacity) {
    nodes_.reserve(capacity);
    std::size_t size = 16;
    while (size < 2 * capacity) size *= 2;
    slots_.resize(size, kNone);
  }

  std::size_t size() const { return size_; }
  std::size_t sizeOf(std::size_t list) const { return lists_[list].size; }
  bool isFull() const { return size_ == capacity_; }

  /// Returns null when the table does not have the key.
  Value* find(const Key& key, std::uint64_t hash) {
    const Index index = slots_[slotOf(key, hash)];
    return index == kNone ? nullptr : &nodes_[index].value;
  }

  /// Inserts an entry as the newest of the list. The table must not have the key and must not be full.
  Value& insert(const Key& key, std::uint64_t hash, std::size_t list = 0) {
    Index index = free_;
    if (index != kNone) {
      free_ = nodes_[index].newer;
    } else {
      index = static_cast<Index>(nodes_.size());
      nodes_.emplace_back();
    }
    Node& node = nodes_[index];
    node.key = key;
    node.hash = static_cast<std::uint32_t>(hash);
    node.value = Value{};
    slots_[slotOf(key, hash)] = index;
    append(index, list);
    ++size_;
    return node.value;
  }

  /// Makes the entry the newest of a list.
  void move(Value& value, std::size_t list = 0) {
    const Index index = indexOf(value);
    if (nodes_[index].list == list && index == lists_[list].newest) return;
    unlink(index);
    append(index, list);
  }

  /// Returns null when the list is empty.
  Value* oldest(std::size_t list = 0) {
    const Index index = lists_[list].oldest;
    return index == kNone ? nullptr : &nodes_[index].value;
  }

  const Key& keyOf(const Value& value) const { return nodes_[indexOf(value)].key; }
  std::size_t listOf(const Value& value) const { return nodes_[indexOf(value)].list; }

  void erase(Value& value) {
    const Index index = indexOf(value);
    Node& node = nodes_[index];
    vacate(slotOf(node.key, node.hash));
    unlink(index);
    node.value = Value{};
    node.newer = free_;
    free_ = index;
    --size_;
  }

 private:
  using Index = std::uint32_t;
  static constexpr Index kNone = ~Index{0};

  struct Node {
    Value value;  // first, so that a value's address is its node's
    Key key;
    std::uint32_t hash;
    Index older, newer;
    std::uint32_t list;
  };

  struct List {
    Index oldest = kNone, newest = kNone;
    std::size_t size = 0;
  };

  Index indexOf(const Value& value) const {
    return static_cast<Index>(reinterpret_cast<const Node*>(&value) - nodes_.data());
  }

  std::size_t home(std::uint64_t hash) const { return static_cast<std::uint32_t>(hash) & (slots_.size() - 1); }

  /// Returns the slot of the key, or the empty slot that a search for it ends at.
  std::size_t slotOf(const Key& key, std::uint64_t hash) const {
    std::size_t slot = home(hash);
    while (slots_[slot] != kNone) {
      const Node& node = nodes_[slots_[slot]];
      if (node.hash == static_cast<std::uint32_t>(hash) && node.key == key) break;
      slot = (slot + 1) & (slots_.size() - 1);
    }
    return slot;
  }

  /// Empties a slot and closes the gap, so that no search ends at it too early.
  void vacate(std::size_t gap) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = (gap + 1) & mask; slots_[slot] != kNone; slot = (slot + 1) & mask) {
      const std::size_t wanted = home(nodes_[slots_[slot]].hash);
      if (((slot - wanted) & mask) < ((slot - gap) & mask)) continue;
      slots_[gap] = slots_[slot];
      gap = slot;
    }
    slots_[gap] = kNone;
  }

  void append(Index index, std::size_t list) {
    List& to = lists_[list];
    nodes_[index].list = static_cast<std::uint32_t>(list);
    nodes_[index].older = to.newest;
    nodes_[index].newer = kNone;
    (to.newest == kNone ? to.oldest : nodes_[to.newest].newer) = index;
    to.newest = index;
    ++to.size;
  }

  void unlink(Index index) {
    const Node& node = nodes_[index];
    List& from = lists_[node.list];
    (node.older == kNone ? from.oldest : nodes_[node.older].newer) = node.newer;
    (node.newer == kNone ? from.newest : nodes_[node.newer].older) = node.older;
    --from.size;
  }

  std::size_t capacity_;
  std::size_t size_ = 0;
  std::vector<Node> nodes_;
  std::vector<Index> slots_;  // open addressing, at most half full
  std::array<List, kLists> lists_;
  Index free_ = kNone;
};

}  // namespace voip
