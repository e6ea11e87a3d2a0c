// The bond lists of PdbFile::read: bonds found over a subset of the atoms renumbered to the
// model's atom indexes, and duplicate bonds removed (with a small hash set of atom pairs).

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kora/pdb/pdb_file.hpp"
#include "pdb/pdb_reading.hpp"

namespace kora {

namespace {

// A set of pair keys by open addressing, on the stack for the few bonds of one residue
// search. No key has every bit set (atom indexes are non-negative ints), which marks an
// empty slot.
class PairSet {
 public:
  explicit PairSet(std::size_t count)
      : mask_(std::bit_ceil(std::max<std::size_t>(2 * count, 16)) - 1) {
    if (mask_ < small_.size()) {
      slots_ = small_.data();
    } else {
      large_.resize(mask_ + 1);
      slots_ = large_.data();
    }
    std::fill_n(slots_, mask_ + 1, empty);
  }
  PairSet(PairSet const&) = delete;
  PairSet& operator=(PairSet const&) = delete;

  // False when the key was there already.
  bool insert(std::uint64_t key) {
    for (std::size_t s = hash(key) & mask_;; s = (s + 1) & mask_) {
      if (slots_[s] == key) return false;
      if (slots_[s] == empty) {
        slots_[s] = key;
        return true;
      }
    }
  }

 private:
  static constexpr std::uint64_t empty = ~std::uint64_t(0);
  static std::size_t hash(std::uint64_t key) {
    return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ULL) >> 32);
  }

  std::size_t mask_;
  std::array<std::uint64_t, 256> small_;
  std::vector<std::uint64_t> large_;
  std::uint64_t* slots_ = nullptr;
};

}  // namespace

void PdbFile::update_bond_indexes_(std::vector<THandle<BondData>>& bonds,
                                   std::vector<int> const& map) {
  auto const inside = [&map](int i) { return i >= 0 && static_cast<std::size_t>(i) < map.size(); };
  for (THandle<BondData> const& bond : bonds) {
    if (inside(bond->atom1()) && inside(bond->atom2())) {
      bond->set_atoms(map[static_cast<std::size_t>(bond->atom1())],
                      map[static_cast<std::size_t>(bond->atom2())]);
    }
  }
}

void PdbFile::remove_duplicate_bonds_(std::vector<THandle<BondData>>& bonds, long first,
                                      long last) {
  long const size = static_cast<long>(bonds.size());
  if (!(0 < first && first < size)) first = 0;
  if (!(0 < last && last < size && first < last)) last = size;
  auto const begin = bonds.begin() + first;
  auto const end = bonds.begin() + last;
  PairSet seen(static_cast<std::size_t>(last - first));
  auto kept = begin;  // [begin, kept) holds the bonds kept so far
  for (auto it = begin; it != end; ++it) {
    if (!seen.insert(detail::pair_key(**it))) continue;
    if (kept != it) *kept = std::move(*it);
    ++kept;
  }
  bonds.erase(kept, end);
}

}  // namespace kora
