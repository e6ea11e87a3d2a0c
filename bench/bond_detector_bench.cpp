// Bond detection speed on a protein-sized cloud: 100,000 atoms in chains of C, N and O with
// hydrogens, packed at about 0.1 atoms per cubic angstrom like a protein. The chains are
// random walks of 1.5 angstrom steps bent by about 110 degrees that keep clear of every atom
// they are not bonded to, so that, as in a real structure, the bonds found are the chains'
// own. Times BondDetector::bonds() with and without hydrogen pruning, and the grouping into
// molecules in molecular mode and in crystal mode (the cloud as the asymmetric unit of a
// P212121 crystal, like a protein's). Prints each time and the bonds found per second.
//
//   bond_detector_bench [google benchmark flags]

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

#include "kora/kernel/bond_detector.hpp"

namespace {

using Vec = kora::Vector<double, 3>;

constexpr int atom_count = 100000;
constexpr double density = 0.1;  // atoms per cubic angstrom

double box_side() {
  return std::cbrt(atom_count / density);
}

// Atoms placed so far, in a grid of 2.5 angstrom cells for the clearance test.
class Occupancy {
 public:
  explicit Occupancy(double side) : n_(int(side / 2.5) + 1), cells_(std::size_t(n_ * n_ * n_)) {}

  // Whether p keeps `heavy` angstroms from heavy atoms and `light` from hydrogens, ignoring
  // the atoms numbered in `bonded`.
  bool clear(Vec const& p, double heavy, double light, std::array<int, 2> bonded) const {
    auto const c = cell_(p);
    for (int i = std::max(c[0] - 1, 0); i <= std::min(c[0] + 1, n_ - 1); ++i)
      for (int j = std::max(c[1] - 1, 0); j <= std::min(c[1] + 1, n_ - 1); ++j)
        for (int k = std::max(c[2] - 1, 0); k <= std::min(c[2] + 1, n_ - 1); ++k)
          for (Entry const& e : cells_[std::size_t((i * n_ + j) * n_ + k)]) {
            if (e.id == bonded[0] || e.id == bonded[1]) continue;
            double const limit = e.hydrogen ? light : heavy;
            Vec const d = e.p - p;
            if (kora::dot(d, d) < limit * limit) return false;
          }
    return true;
  }
  void add(Vec const& p, int id, bool hydrogen) {
    auto const c = cell_(p);
    cells_[std::size_t((c[0] * n_ + c[1]) * n_ + c[2])].push_back({p, id, hydrogen});
  }

 private:
  struct Entry {
    Vec p;
    int id;
    bool hydrogen;
  };
  std::array<int, 3> cell_(Vec const& p) const {
    return {std::clamp(int(p[0] / 2.5), 0, n_ - 1), std::clamp(int(p[1] / 2.5), 0, n_ - 1),
            std::clamp(int(p[2] / 2.5), 0, n_ - 1)};
  }
  int n_;
  std::vector<std::vector<Entry>> cells_;
};

// Chains of up to 60 heavy atoms, two hydrogens on every other one, kept 1.1 angstroms inside
// the box so that the symmetry copies of the box in a crystal do not bond to each other.
std::vector<kora::THandle<kora::Atom>> make_cloud(kora::Cell const& cell) {
  std::mt19937 random(2024);
  double const side = box_side(), margin = 1.1;
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  auto const unit = [&] {
    double const z = 2 * uniform(random) - 1, phi = 2 * std::numbers::pi * uniform(random);
    double const r = std::sqrt(1 - z * z);
    return Vec{r * std::cos(phi), r * std::sin(phi), z};
  };
  // A direction at 180 - 110 degrees from `axis`.
  auto const bent = [&](Vec const& axis) {
    Vec other = unit();
    other -= axis * kora::dot(other, axis);
    other *= 1.0 / kora::norm(other);
    double const angle = (180.0 - 110.0) * std::numbers::pi / 180.0;
    return Vec(axis * std::cos(angle) + other * std::sin(angle));
  };
  auto const inside = [&](Vec const& p) {
    for (double v : p)
      if (v < margin || v > side - margin) return false;
    return true;
  };
  Occupancy occupancy(side);
  std::vector<kora::THandle<kora::Atom>> atoms;
  auto const add = [&](char const* symbol, Vec const& p) {
    int const id = int(atoms.size());
    occupancy.add(p, id, symbol[0] == 'H');
    atoms.push_back(kora::make_handle<kora::FileOrderedAtom3d>(
        id, kora::Element(symbol), symbol, kora::make_handle<kora::Site>(cell.fractional(p), p)));
    return id;
  };
  char const* heavy[] = {"N", "C", "C", "O", "C"};
  atoms.reserve(atom_count);
  for (int attempt = 0; int(atoms.size()) < atom_count && attempt < 10 * atom_count; ++attempt) {
    Vec p{side * uniform(random), side * uniform(random), side * uniform(random)};
    if (!inside(p) || !occupancy.clear(p, 2.2, 1.7, {-1, -1})) continue;
    int previous = add("C", p);
    Vec axis = unit();
    for (int i = 1; i < 60 && int(atoms.size()) < atom_count; ++i) {
      bool placed = false;
      for (int tries = 0; tries < 10 && !placed; ++tries) {
        Vec const step = bent(axis);
        Vec const q = p + 1.5 * step;
        if (!inside(q) || !occupancy.clear(q, 2.2, 1.7, {previous, -1})) continue;
        int const here = add(heavy[i % 5], q);
        // Hydrogens on every other atom, where there is room.
        for (int h = 0; h < 2 && i % 2 == 0 && int(atoms.size()) < atom_count; ++h) {
          Vec const r = q + 1.0 * bent(step);
          if (inside(r) && occupancy.clear(r, 1.7, 1.3, {here, -1})) add("H", r);
        }
        p = q;
        axis = step;
        previous = here;
        placed = true;
      }
      if (!placed) break;
    }
  }
  return atoms;
}

kora::Cell const& cell() {
  // The box is the asymmetric unit of P212121 (x and y up to 1/2, z up to 1).
  static kora::Cell const c(2 * box_side(), 2 * box_side(), box_side(),
                            kora::Angle::from_degrees(90), kora::Angle::from_degrees(90),
                            kora::Angle::from_degrees(90), kora::Spacegroup("P212121"));
  return c;
}

std::vector<kora::THandle<kora::Atom>>& cloud() {
  static std::vector<kora::THandle<kora::Atom>> atoms = make_cloud(cell());
  return atoms;
}

void bonds(benchmark::State& state, kora::BondDetector::RefinementMode refinement) {
  kora::BondDetector const detector(kora::BondDetector::molecular, refinement,
                                    kora::BondDistanceLimit());
  auto const& atoms = cloud();
  std::size_t found = 0;
  for (auto _ : state) {
    auto const result = detector.bonds(atoms);
    found = result->size();
    benchmark::DoNotOptimize(result.get());
  }
  state.counters["atoms"] = double(atoms.size());
  state.counters["bonds"] = double(found);
  state.counters["bonds/s"] =
      benchmark::Counter(double(found), benchmark::Counter::kIsIterationInvariantRate);
}

void molecules(benchmark::State& state, kora::BondDetector::DetectionMode detection) {
  kora::BondDetector const detector(detection, kora::BondDetector::prune_hydrogens,
                                    kora::BondDistanceLimit());
  auto& atoms = cloud();
  std::size_t count = 0;
  for (auto _ : state) {
    auto const result = detector.molecules(atoms, cell());
    count = result->size();
    benchmark::DoNotOptimize(result.get());
  }
  state.counters["molecules"] = double(count);
}

BENCHMARK_CAPTURE(bonds, plain, kora::BondDetector::no_refinement)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(bonds, prune_hydrogens, kora::BondDetector::prune_hydrogens)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(molecules, molecular, kora::BondDetector::molecular)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(molecules, crystal, kora::BondDetector::crystal)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
