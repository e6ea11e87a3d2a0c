#pragma once

// What the parts of bond detection share: the table of squared bond limits between the
// elements that occur, an atom's disorder part and finiteness of a position, and the
// making of sorted bond lists (see bond_detector.cpp, crystal_*.cpp, hydrogen_pruning.cpp).

#include <array>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include "kora/kernel/bond_detector.hpp"

namespace kora::detail::bonding {

// Kept out of the library's exported symbols, like file-local code: the functions are then
// not interposable, so the compiler may inline them within each file.
#pragma GCC visibility push(hidden)

inline constexpr double minimum_distance_squared =
    BondDistanceLimit::minimum_distance * BondDistanceLimit::minimum_distance;

// Squared bond limits between the elements that occur, by a small class number per element,
// so that the inner loops read one table instead of two radii and a tolerance.
class ElementPairs {
 public:
  explicit ElementPairs(BondDistanceLimit const& limit) : limit_(limit) { class_.fill(-1); }

  // The class of an element, adding it when new; -1 for the unset element.
  int add(Element const& element) {
    int const code = element.kora_code();
    if (!element.is_set() || code < 0 || code >= int(class_.size())) return -1;
    if (class_[std::size_t(code)] < 0) {
      class_[std::size_t(code)] = int(elements_.size());
      elements_.push_back(element);
    }
    return class_[std::size_t(code)];
  }

  // Fills the table once every element has been added.
  void finish() {
    std::size_t const n = elements_.size();
    squared_.assign(n * n, 0.0);
    largest_ = 0.0;
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) {
        double const d = limit_.maximum_distance(elements_[i], elements_[j]);
        squared_[i * n + j] = d * d;
        largest_ = std::max(largest_, d);
      }
  }

  double squared(int a, int b) const {
    return squared_[std::size_t(a) * elements_.size() + std::size_t(b)];
  }
  // The longest bond possible between any two of the elements.
  double largest() const { return largest_; }
  bool bonded(int a, int b, double distance_squared) const {
    return distance_squared > minimum_distance_squared && distance_squared < squared(a, b);
  }

 private:
  BondDistanceLimit limit_;
  std::array<int, Element::deuterium_code + 1> class_{};
  std::vector<Element> elements_;
  std::vector<double> squared_;
  double largest_ = 0.0;
};

inline int part_of(Atom const& atom) {
  AtomDetails const* details = atom.details();
  return details ? details->part : 0;
}

inline bool finite(Point const& p) {
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

// Sorts pairs by first then second index in linear time (indexes below `count`).
void sort_pairs(std::vector<std::pair<int, int>>& pairs, std::size_t count);

// The bonds as handles that share one allocation (each keeps the whole block alive): a large
// result is then several times cheaper to make and to free than with one object per bond.
THandle<std::vector<THandle<BondData>>> bond_handles(std::vector<std::pair<int, int>> const& pairs);

// Hydrogen pruning of bonds found among atoms at their own positions (molecular mode): each
// hydrogen keeps only its bond to the nearest partner. `found` is sorted and stays so.
void prune_hydrogen_pairs(std::vector<std::pair<int, int>>& found,
                          std::vector<THandle<Atom>> const& atoms);

#pragma GCC visibility pop

}  // namespace kora::detail::bonding
