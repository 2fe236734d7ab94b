#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace voip {

/// A bounded map that knows which of its entries was put or touched longest ago. Room for all of them is taken when it
/// is made, so that entries never move; memory is used as they come. The hash of a key is the caller's, who seeds it
/// where strangers choose the keys.
template <class Key, class Value>
class LruTable {
 public:
  explicit LruTable(std::size_t capacity) : limit(capacity) {
    nodes.reserve(capacity);
    std::size_t size = 16;
    while (size < 2 * capacity) size *= 2;
    slots.resize(size, kNone);
  }

  std::size_t size() const { return used; }
  bool full() const { return used == limit; }

  /// Null when the key is not there.
  Value* find(const Key& key, std::uint64_t hash) {
    const std::size_t slot = slotOf(key, hash);
    return slots[slot] == kNone ? nullptr : &nodes[slots[slot]].value;
  }

  /// The key is not there and the table is not full.
  Value& insert(const Key& key, std::uint64_t hash) {
    Index index = free;
    if (index != kNone) {
      free = nodes[index].newer;
    } else {
      index = static_cast<Index>(nodes.size());
      nodes.emplace_back();
    }
    Node& node = nodes[index];
    node.key = key;
    node.hash = static_cast<std::uint32_t>(hash);
    node.value = Value{};
    slots[slotOf(key, hash)] = index;
    append(index);
    ++used;
    return node.value;
  }

  /// Makes the entry the newest.
  void touch(Value& value) {
    const Index index = indexOf(value);
    if (index == newest) return;
    unlink(index);
    append(index);
  }

  Value* oldestValue() { return oldest == kNone ? nullptr : &nodes[oldest].value; }
  const Key& keyOf(const Value& value) const { return nodes[indexOf(value)].key; }

  void erase(Value& value) {
    const Index index = indexOf(value);
    Node& node = nodes[index];
    vacate(slotOf(node.key, node.hash));
    unlink(index);
    node.value = Value{};
    node.newer = free;
    free = index;
    --used;
  }

 private:
  using Index = std::uint32_t;
  static constexpr Index kNone = ~Index{0};

  struct Node {
    Value value;  // first, so that a value's address tells its node
    Key key;
    std::uint32_t hash;
    Index older, newer;
  };

  Index indexOf(const Value& value) const {
    return static_cast<Index>(reinterpret_cast<const Node*>(&value) - nodes.data());
  }

  std::size_t home(std::uint64_t hash) const { return static_cast<std::uint32_t>(hash) & (slots.size() - 1); }

  /// Where the key stands, or the empty slot where it would.
  std::size_t slotOf(const Key& key, std::uint64_t hash) const {
    std::size_t slot = home(hash);
    while (slots[slot] != kNone) {
      const Node& node = nodes[slots[slot]];
      if (node.hash == static_cast<std::uint32_t>(hash) && node.key == key) break;
      slot = (slot + 1) & (slots.size() - 1);
    }
    return slot;
  }

  /// Empties a slot and closes the gap, so that no search ends at it too early.
  void vacate(std::size_t gap) {
    const std::size_t mask = slots.size() - 1;
    for (std::size_t slot = (gap + 1) & mask; slots[slot] != kNone; slot = (slot + 1) & mask) {
      const std::size_t wanted = home(nodes[slots[slot]].hash);
      if (((slot - wanted) & mask) < ((slot - gap) & mask)) continue;
      slots[gap] = slots[slot];
      gap = slot;
    }
    slots[gap] = kNone;
  }

  void append(Index index) {
    nodes[index].older = newest;
    nodes[index].newer = kNone;
    (newest == kNone ? oldest : nodes[newest].newer) = index;
    newest = index;
  }

  void unlink(Index index) {
    const Node& node = nodes[index];
    (node.older == kNone ? oldest : nodes[node.older].newer) = node.newer;
    (node.newer == kNone ? newest : nodes[node.newer].older) = node.older;
  }

  std::size_t limit;
  std::size_t used = 0;
  std::vector<Node> nodes;
  std::vector<Index> slots;  // open addressing, at most half full
  Index oldest = kNone, newest = kNone, free = kNone;
};

}  // namespace voip
