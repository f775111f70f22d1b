// Nodes of a map that outlive their entries: an entry that leaves the map leaves its node for one
// that comes, so that steady traffic allocates nothing.
//
// Spare nodes wait in a multimap of the same types. Their keys are all null, so that a node comes
// and goes at either end of it, in constant time.
#ifndef QIV_MEMORY_SPARE_NODES_H
#define QIV_MEMORY_SPARE_NODES_H

#include <cstddef>
#include <new>
#include <utility>

namespace qiv::memory {

/** Allocates a spare node; throws std::bad_alloc. */
template <class Spares>
void AddSpareNode(Spares& spares) {
  spares.emplace(nullptr, nullptr);
}

/** Makes sure of a spare node; false when memory is short. */
template <class Spares>
bool HasSpareNode(Spares& spares) noexcept try {
  if (spares.empty()) AddSpareNode(spares);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

/** Enters a key and a value with a spare node, which there must be. A key that is there already
 *  gets the new value; false then. */
template <class Map, class Spares>
bool EnterWithSpareNode(Map& map, Spares& spares, typename Map::key_type key,
                        typename Map::mapped_type value) {
  auto node = spares.extract(spares.begin());
  node.key() = key;
  node.mapped() = value;
  const auto entered = map.insert(std::move(node));
  if (!entered.inserted) entered.position->second = value;
  return entered.inserted;
}

/** Removes an entry and keeps its node. */
template <class Map, class Spares>
void RemoveAndKeepNode(Map& map, Spares& spares, typename Map::iterator entry) {
  auto node = map.extract(entry);
  node.key() = nullptr;
  node.mapped() = nullptr;
  spares.insert(spares.end(), std::move(node));
}

}  // namespace qiv::memory

#endif
