// Hydrogen pruning (BondDetector::prune_hydrogens): geometric detection over-bonds crowded
// hydrogens, so each hydrogen keeps only its bond to the nearest partner, in molecular mode
// among the atoms as they are and in crystal mode among the bonds to symmetry images.

#include <cstddef>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include "kernel/bond_detection.hpp"
#include "kernel/crystal_builder.hpp"

namespace kora::detail::bonding {
namespace {

double squared_norm(Vector<double, 3> const& v) {
  return dot(v, v);
}

}  // namespace

void prune_hydrogen_pairs(std::vector<std::pair<int, int>>& found,
                          std::vector<THandle<Atom>> const& atoms) {
  // Each hydrogen picks its nearest bonded partner (the lower index on a tie); a bond
  // survives when every hydrogen end picked it. A hydrogen thus keeps at most one bond,
  // and a hydrogen bonded only to another hydrogen that prefers a third atom loses it.
  std::vector<int> nearest(atoms.size(), -1);
  std::vector<double> nearest_distance(atoms.size(), std::numeric_limits<double>::infinity());
  auto const distance = [&](int i, int j) {
    return squared_norm(atoms[std::size_t(i)]->site()->orthogonal() -
                        atoms[std::size_t(j)]->site()->orthogonal());
  };
  auto const offer = [&](int h, int partner, double d) {
    if (!atoms[std::size_t(h)]->element().is_hydrogen()) return;
    double& best = nearest_distance[std::size_t(h)];
    if (d < best || (d == best && partner < nearest[std::size_t(h)])) {
      best = d;
      nearest[std::size_t(h)] = partner;
    }
  };
  for (auto const& [i, j] : found) {
    double const d = distance(i, j);
    offer(i, j, d);
    offer(j, i, d);
  }
  std::erase_if(found, [&](std::pair<int, int> const& p) {
    int const ni = nearest[std::size_t(p.first)], nj = nearest[std::size_t(p.second)];
    return (ni >= 0 && ni != p.second) || (nj >= 0 && nj != p.first);
  });
}

// A hydrogen keeps only its bond to the nearest partner (the lower atom number on a tie, then
// the first image found); a bond survives when each of its hydrogen ends keeps it.
void CrystalBuilder::prune_hydrogens_() {
  std::size_t const n = atoms_.size();
  std::vector<int> nearest(n, -1);
  for (std::size_t i = 0; i < n; ++i) {
    std::span<Link const> const links = links_.of(i);
    if (links.empty() || !atoms_[i]->element().is_hydrogen()) continue;
    for (std::size_t l = 0; l < links.size(); ++l) {
      int const b = nearest[i];
      if (b < 0 || links[l].distance < links[std::size_t(b)].distance ||
          (links[l].distance == links[std::size_t(b)].distance &&
           links[l].atom < links[std::size_t(b)].atom))
        nearest[i] = int(l);
    }
  }
  auto const same = [&](Point const& p, Point const& q) {
    return orthogonal_length_(p - q) < same_position_tolerance;
  };
  LinkTable kept;
  for (std::size_t i = 0; i < n; ++i) {
    kept.begin_atom();
    for (Link const& link : links_.of(i)) {
      std::size_t const j = std::size_t(link.atom);
      bool keep = true;
      if (nearest[i] >= 0) {
        // The hydrogen's choice, or the same image reached through another operator.
        Link const& choice = links_.of(i)[std::size_t(nearest[i])];
        keep = choice.atom == link.atom && same(choice.at, link.at);
      }
      if (keep && nearest[j] >= 0) {
        // From the far end, this bond leads back to x_i through h after j's choice.
        Link const& choice = links_.of(j)[std::size_t(nearest[j])];
        keep = choice.atom == int(i) && same(link.h(choice.at), fractional_[i]);
      }
      if (keep) kept.add(link);
    }
  }
  kept.finish();
  links_ = std::move(kept);
}

}  // namespace kora::detail::bonding
