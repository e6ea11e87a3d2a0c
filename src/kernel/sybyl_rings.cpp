// SYBYL typing, ring perception: the bonds that lie in cycles, then every ring of up to
// max_ring_size atoms made of them.

#include <algorithm>
#include <vector>

#include "kernel/sybyl_typer_internal.hpp"

namespace kora::detail::sybyl {

// Marks the bonds between heavy atoms that lie in a cycle (those that are not bridges), by
// an iterative depth-first search that tracks the lowest discovery time reachable from
// each subtree. Linear in atoms and bonds.
void Typer::find_ring_bonds_() {
  std::vector<int> discovered(n_, -1);
  std::vector<int> low(n_, 0);
  struct Frame {
    int atom;
    int parent_bond;
    int next;
  };
  std::vector<Frame> stack;
  int time = 0;
  for (int root = 0; root < n_; ++root) {
    if (discovered[root] >= 0 || z_[root] == hydrogen) continue;
    discovered[root] = low[root] = time++;
    stack.push_back({root, -1, offset_[root]});
    while (!stack.empty()) {
      Frame& frame = stack.back();
      if (frame.next < offset_[frame.atom + 1]) {
        Neighbour const nb = adj_[frame.next++];
        if (nb.bond == frame.parent_bond || z_[nb.atom] == hydrogen) continue;
        if (discovered[nb.atom] < 0) {
          discovered[nb.atom] = low[nb.atom] = time++;
          stack.push_back({nb.atom, nb.bond, offset_[nb.atom]});
        } else {
          bonds_[nb.bond].ring = true;  // a bond that closes a cycle
          low[frame.atom] = std::min(low[frame.atom], discovered[nb.atom]);
        }
      } else {
        int const child = frame.atom;
        int const parent_bond = frame.parent_bond;
        stack.pop_back();
        if (stack.empty()) break;
        int const parent = stack.back().atom;
        low[parent] = std::min(low[parent], low[child]);
        if (low[child] <= discovered[parent]) bonds_[parent_bond].ring = true;
      }
    }
  }
}

// Lists every cycle of at most max_ring_size atoms made of ring bonds. Each cycle is found
// once, from its lowest-numbered atom and in the direction of its smaller second atom. A
// work budget proportional to the molecule's size bounds the search in cage structures.
void Typer::find_rings_() {
  long budget = 100000L + 2000L * n_;
  std::vector<int> atoms;
  std::vector<int> bonds;
  for (int s = 0; s < n_ && budget > 0; ++s) {
    bool in_ring = false;
    for (Neighbour const& nb : neighbours_(s))
      in_ring = in_ring || bonds_[nb.bond].ring;
    if (!in_ring) continue;
    atoms.assign(1, s);
    bonds.clear();
    extend_ring_(s, s, atoms, bonds, budget);
  }
}

void Typer::extend_ring_(int start, int atom, std::vector<int>& atoms, std::vector<int>& bonds,
                         long& budget) {
  if (--budget < 0) return;
  for (Neighbour const& nb : neighbours_(atom)) {
    if (!bonds_[nb.bond].ring) continue;
    if (nb.atom == start) {
      if (atoms.size() >= 3 && atoms[1] < atoms.back()) {
        ring_atoms_.push_back(atoms);
        ring_bonds_.push_back(bonds);
        ring_bonds_.back().push_back(nb.bond);
      }
      continue;
    }
    if (nb.atom < start || static_cast<int>(atoms.size()) >= max_ring_size ||
        std::find(atoms.begin(), atoms.end(), nb.atom) != atoms.end())
      continue;
    atoms.push_back(nb.atom);
    bonds.push_back(nb.bond);
    extend_ring_(start, nb.atom, atoms, bonds, budget);
    atoms.pop_back();
    bonds.pop_back();
  }
}

}  // namespace kora::detail::sybyl
