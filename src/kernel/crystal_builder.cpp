// Crystal mode: growing each molecule breadth first from a given atom through the bonds to
// symmetry images, adding copies of atoms where the given ones do not reach; moving a grown
// molecule onto the given atoms by the symmetry operation most of its atoms vote for; and the
// sites of the copies, turned by their operations.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "kernel/crystal_builder.hpp"

namespace kora::detail::bonding {
namespace {

// The carried standard uncertainty of a transformed component: kept when the component is
// just another one with a sign (rotations that permute axes), dropped when it mixes several.
template <class T>
T carried(std::array<T, 9> const& sources, std::array<int, 9> const& coefficients) {
  int terms = 0;
  T result{};
  for (std::size_t i = 0; i < sources.size(); ++i)
    if (coefficients[i] != 0) {
      ++terms;
      result = sources[i];
    }
  return terms == 1 ? result : T{};
}

// The site of an atom moved by a symmetry operation: the anisotropic displacement tensor
// and the coordinates' uncertainties turn with the atom.
THandle<Site> transformed_site(Site const& site, Affine const& g, Point const& fractional,
                               Cell const& cell) {
  Matrix<int, 3, 3> const& r = g.r;
  auto const& sigma = *site.position_uncertainty();
  auto moved_sigma = make_handle<Array<Uncertainty, 3>>();
  for (std::size_t i = 0; i < 3; ++i) {
    std::array<Uncertainty, 9> sources{sigma[0], sigma[1], sigma[2]};
    std::array<int, 9> coefficients{r(i, 0), r(i, 1), r(i, 2)};
    (*moved_sigma)[i] = carried(sources, coefficients);
  }

  THandle<AtomicDisplacementParameters> adp = site.atomic_displacement_parameters();
  if (adp && adp->type() == AtomicDisplacementParameters::anisotropic) {
    // U* = N U N with N the diagonal of reciprocal lengths turns as R U* R^T.
    Matrix<double, 3, 3> const& to_fractional = cell.orthogonal_to_fractional();
    std::array<double, 3> reciprocal{};
    for (std::size_t i = 0; i < 3; ++i)
      reciprocal[i] = std::hypot(to_fractional(i, 0), to_fractional(i, 1), to_fractional(i, 2));
    std::array<UncertainValue, 6> u;
    static constexpr std::array<std::array<std::size_t, 2>, 6> order = {
        {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}}};
    for (std::size_t m = 0; m < 6; ++m) {
      std::size_t const i = order[m][0], j = order[m][1];
      double value = 0.0;
      std::array<Uncertainty, 9> sources{};
      std::array<int, 9> coefficients{};
      for (std::size_t k = 0; k < 3; ++k)
        for (std::size_t l = 0; l < 3; ++l) {
          int const c = r(i, k) * r(j, l);
          value += c * reciprocal[k] * reciprocal[l] * adp->u(int(k), int(l));
          sources[3 * k + l] = adp->u_value(int(k), int(l)).uncertainty();
          coefficients[3 * k + l] = c;
        }
      value /= reciprocal[i] * reciprocal[j];
      u[m] = UncertainValue(value, carried(sources, coefficients));
    }
    adp = make_handle<AtomicDisplacementParameters>(u[0], u[1], u[2], u[3], u[4], u[5],
                                                    AtomicDisplacementParameters::anisotropic);
  }
  return make_handle<Site>(fractional, cell.orthogonal(fractional), site.occupancy(), moved_sigma,
                           adp);
}

}  // namespace

// The given atom, not yet placed, that sits at fractional position p as a copy of `atom`;
// -1 when there is none.
int CrystalBuilder::given_at_(int atom, Point const& p) const {
  for (int i : orbit_[std::size_t(atom)])
    if (!given_used_[std::size_t(i)] && same_position_(p - fractional_[std::size_t(i)])) return i;
  return -1;
}

std::array<int, 3> CrystalBuilder::bucket_of_(Point const& p) const {
  std::array<int, 3> bucket{};
  for (std::size_t a = 0; a < 3; ++a) {
    double const wrapped = p[a] - std::floor(p[a]);
    bucket[a] =
        wrapped >= 0.0 && wrapped < 1.0 ? std::min(buckets_[a] - 1, int(wrapped * buckets_[a])) : 0;
  }
  return bucket;
}

std::uint64_t CrystalBuilder::bucket_key_(int atom, std::array<int, 3> const& bucket) {
  // Atoms are fewer than 2^31 and grid indices below 2^10.
  return std::uint64_t(atom) << 30 | std::uint64_t(bucket[0]) << 20 |
         std::uint64_t(bucket[1]) << 10 | std::uint64_t(bucket[2]);
}

// The member of the molecule at p = g(x_atom), g = outer inner: an existing one at that position, a
// new one (the given atom sitting there when there is one, otherwise a copy), or -1 when the
// position is a lattice translation of a member (the molecule is polymeric) or no more copies may
// be made.
int CrystalBuilder::member_at_(int atom, Point const& p, Affine const& outer, Affine const& inner) {
  // The grid cells that the box of half-widths same_position_reach_ around p overlaps:
  // its own, and a neighbour on the side where p lies closer to the edge than the reach.
  std::array<int, 3> const bucket = bucket_of_(p);
  std::array<int, 3> low{}, high{};
  for (std::size_t a = 0; a < 3; ++a) {
    if (buckets_[a] == 1) continue;
    double const within = (p[a] - std::floor(p[a])) * buckets_[a] - bucket[a];
    double const reach = same_position_reach_[a] * buckets_[a];
    low[a] = within < reach ? -1 : 0;
    high[a] = within > 1.0 - reach ? 1 : 0;
    if (buckets_[a] == 2 && low[a] < 0 && high[a] > 0) high[a] = 0;
  }
  int found = -1;
  bool found_whole = false;
  std::array<int, 3> at{};
  for (int i = low[0]; i <= high[0]; ++i) {
    at[0] = (bucket[0] + i + buckets_[0]) % buckets_[0];
    for (int j = low[1]; j <= high[1]; ++j) {
      at[1] = (bucket[1] + j + buckets_[1]) % buckets_[1];
      for (int k = low[2]; k <= high[2]; ++k) {
        at[2] = (bucket[2] + k + buckets_[2]) % buckets_[2];
        auto const first = first_in_bucket_.find(bucket_key_(atom, at));
        if (first == first_in_bucket_.end()) continue;
        // The earliest member at the position, as a scan in the order of growth would find.
        for (int m = first->second; m >= 0; m = next_in_bucket_[std::size_t(m)]) {
          if (found >= 0 && m > found) continue;
          Vector<double, 3> d = p - members_[std::size_t(m)].fractional;
          bool whole = true;
          for (std::size_t a = 0; a < 3; ++a) {
            double const r = std::round(d[a]);
            whole = whole && r == 0.0;
            d[a] -= r;
          }
          if (same_position_(d)) {
            found = m;
            found_whole = whole;
          }
        }
      }
    }
  }
  if (found >= 0) return found_whole ? found : -1;
  int const given = given_at_(atom, p);
  if (given < 0) {
    if (copies_left_ == 0) return -1;
    --copies_left_;
  } else {
    given_used_[std::size_t(given)] = true;
  }
  int const m = int(members_.size());
  members_.push_back(
      {atom, compose(outer, inner), given >= 0 ? fractional_[std::size_t(given)] : p, given});
  Point const& placed = members_.back().fractional;
  auto const [first, added] =
      first_in_bucket_.try_emplace(bucket_key_(atom, bucket_of_(placed)), m);
  next_in_bucket_.push_back(added ? -1 : first->second);
  first->second = m;
  covered_[std::size_t(atom)] = true;
  (given >= 0 ? given_queue_ : copy_queue_).push_back(m);
  return m;
}

// The molecule may have reached given atoms only through images, for instance when the
// given atoms straddle a cell edge. Among the symmetry operations that take one of its new
// atoms onto a given atom not placed yet, takes the one chosen most often, and moves the
// molecule by it if that puts more of its atoms onto given atoms than as grown.
void CrystalBuilder::move_to_given_() {
  std::map<std::array<std::int64_t, 12>, std::pair<std::size_t, Affine>> votes;
  std::size_t placed = 0;
  for (Member const& member : members_) {
    if (member.given >= 0) {
      ++placed;
      continue;
    }
    Affine back;
    if (!invert(member.g.r, back.r)) continue;
    back.t = -(back.r * member.g.t);
    for (int d : orbit_[std::size_t(member.atom)]) {
      if (given_used_[std::size_t(d)]) continue;
      Affine const move = compose(from_representative_[std::size_t(d)], back);
      std::array<std::int64_t, 12> key{};
      for (std::size_t i = 0; i < 9; ++i)
        key[i] = move.r(i / 3, i % 3);
      for (std::size_t i = 0; i < 3; ++i)
        key[9 + i] = std::int64_t(std::nearbyint(std::clamp(move.t[i] * 1e4, -1e15, 1e15)));
      ++votes.try_emplace(key, 0, move).first->second.first;
    }
  }
  std::pair<std::size_t, Affine> const* best = nullptr;
  for (auto const& [key, vote] : votes)
    if (!best || vote.first > best->first) best = &vote;
  if (!best) return;

  // Count the given atoms the move would put in place, this molecule's own ones included.
  Affine const move = best->second;
  auto const set_used = [&](bool used) {
    for (Member const& member : members_)
      if (member.given >= 0) given_used_[std::size_t(member.given)] = used;
  };
  set_used(false);
  std::size_t in_place = 0;
  for (Member const& member : members_)
    if (given_at_(member.atom, compose(move, member.g)(fractional_[std::size_t(member.atom)])) >= 0)
      ++in_place;
  if (in_place <= placed) {
    set_used(true);
    return;
  }
  for (Member& member : members_) {
    member.g = compose(move, member.g);
    member.fractional = member.g(fractional_[std::size_t(member.atom)]);
    member.given = given_at_(member.atom, member.fractional);
    if (member.given >= 0) {
      given_used_[std::size_t(member.given)] = true;
      member.fractional = fractional_[std::size_t(member.given)];
    }
  }
  copies_left_ += in_place - placed;
}

// Breadth first from a given atom, taking given atoms before copies so that the atoms as
// given are preferred wherever the molecule could reach either.
THandle<Molecule> CrystalBuilder::grow_(int start) {
  members_.clear();
  given_queue_.clear();
  copy_queue_.clear();
  std::vector<std::pair<int, int>> bonds;
  std::vector<std::pair<Link const*, Point>> targets;
  member_at_(start, fractional_[std::size_t(start)], Affine{}, Affine{});
  while (!given_queue_.empty() || !copy_queue_.empty()) {
    std::deque<int>& queue = given_queue_.empty() ? copy_queue_ : given_queue_;
    int const m = queue.front();
    queue.pop_front();
    // Neighbours that are given atoms in place first, so that where a given atom and a
    // lattice translation of it could both join a polymer, the given atom does.
    std::span<Link const> const links = links_.of(std::size_t(members_[std::size_t(m)].atom));
    targets.clear();
    std::size_t placed_first = 0;
    Affine const g = members_[std::size_t(m)].g;  // members_ grows below
    for (Link const& link : links) {
      targets.push_back({&link, g(link.at)});
      if (given_at_(link.atom, targets.back().second) >= 0)
        std::swap(targets.back(), targets[placed_first++]);
    }
    for (auto const& [link, p] : targets) {
      int const other = member_at_(link->atom, p, g, link->h);
      if (other < 0 || other == m) continue;
      bonds.emplace_back(std::min(m, other), std::max(m, other));
    }
  }
  // Erased key by key: clearing the whole table would cost its largest size for every
  // molecule.
  for (Member const& member : members_)
    first_in_bucket_.erase(bucket_key_(member.atom, bucket_of_(member.fractional)));
  next_in_bucket_.clear();
  move_to_given_();

  // Given atoms first, in their order, then the copies in the order they were made.
  std::vector<int> order(members_.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    order[i] = int(i);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    int const ga = members_[std::size_t(a)].given, gb = members_[std::size_t(b)].given;
    if ((ga < 0) != (gb < 0)) return ga >= 0;
    return ga >= 0 && ga < gb;
  });
  std::vector<int> position(members_.size());
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  for (std::size_t i = 0; i < order.size(); ++i) {
    Member const& member = members_[std::size_t(order[i])];
    position[std::size_t(order[i])] = int(i);
    if (member.given >= 0) {
      atoms->push_back(atoms_[std::size_t(member.given)]);
    } else {
      Atom const& original = *atoms_[std::size_t(member.atom)];
      THandle<Atom> copy = original.clone();
      copy->set_site(transformed_site(*original.site(), member.g, member.fractional, cell_));
      atoms->push_back(copy);
    }
  }
  for (auto& bond : bonds) {
    bond = {position[std::size_t(bond.first)], position[std::size_t(bond.second)]};
    if (bond.first > bond.second) std::swap(bond.first, bond.second);
  }
  // Each bond is met from both ends, and twice more from an atom on a special position.
  sort_pairs(bonds, members_.size());
  bonds.erase(std::unique(bonds.begin(), bonds.end()), bonds.end());
  return THandle<Molecule>(make_handle<Molecule3d>(atoms, bond_handles(bonds)));
}

THandle<std::vector<THandle<Molecule>>> CrystalBuilder::build() {
  if (!find_links_()) return {};
  if (detector_.refinement_mode() == BondDetector::prune_hydrogens) prune_hydrogens_();
  std::size_t const n = atoms_.size();

  std::size_t const valid = std::size_t(
      std::count_if(element_class_.begin(), element_class_.end(), [](int c) { return c >= 0; }));
  copies_left_ = 20 * valid * operators_.size();
  covered_.assign(n, false);
  given_used_.assign(n, false);

  auto molecules = make_handle<std::vector<THandle<Molecule>>>();
  for (std::size_t i = 0; i < n; ++i) {
    if (!atoms_[i]) continue;
    if (element_class_[i] < 0) {
      // No position or no element: a molecule of its own.
      auto alone = make_handle<std::vector<THandle<Atom>>>(1, atoms_[i]);
      molecules->push_back(THandle<Molecule>(
          make_handle<Molecule3d>(alone, make_handle<std::vector<THandle<BondData>>>())));
      continue;
    }
    if (covered_[std::size_t(representative_[i])]) continue;
    molecules->push_back(grow_(int(i)));
  }
  return molecules;
}

}  // namespace kora::detail::bonding
