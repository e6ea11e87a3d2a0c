#include "kora/kernel/atom.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace kora {

Site::Site(Point const& fractional, Point const& orthogonal, double occupancy)
    : Site(fractional, orthogonal, UncertainValue(occupancy), {}, {}) {}

Site::Site(Point const& fractional, Point const& orthogonal, UncertainValue occupancy,
           THandle<Array<Uncertainty, 3>> position_uncertainty,
           THandle<AtomicDisplacementParameters> displacement_parameters)
    : fractional_(fractional),
      orthogonal_(orthogonal),
      occupancy_(occupancy),
      position_uncertainty_(std::move(position_uncertainty)),
      displacement_parameters_(std::move(displacement_parameters)) {}

THandle<Array<Uncertainty, 3>> const& Site::no_uncertainty_() {
  static THandle<Array<Uncertainty, 3>> const zero = make_handle<Array<Uncertainty, 3>>();
  return zero;
}

FileOrderedAtom3d::FileOrderedAtom3d(int file_order, Element const& element, std::string label,
                                     THandle<Site> const& site)
    : file_order_(file_order), element_(element), label_(std::move(label)), site_(site) {}

void FileOrderedAtom3d::copy_to_(FileOrderedAtom3d& atom) const {
  atom.formal_charge_ = formal_charge_;
  atom.index_ = index_;
  atom.connection_count_ = connection_count_;
  atom.details_ = details_;
  if (site_) atom.site_ = make_handle<Site>(*site_);
}

THandle<Atom> FileOrderedAtom3d::clone() const {
  auto atom = make_handle<FileOrderedAtom3d>(file_order_, element_, label_, THandle<Site>());
  copy_to_(*atom);
  return atom;
}

int ProteinAtom::kind_of_(std::string const& residue_label) {
  // The twenty standard amino acids in the alphabetical order of their codes, each code's
  // three letters packed into one number (so the order is kept).
  constexpr auto key = [](char a, char b, char c) {
    return (static_cast<unsigned>(static_cast<unsigned char>(a)) << 16) |
           (static_cast<unsigned>(static_cast<unsigned char>(b)) << 8) |
           static_cast<unsigned>(static_cast<unsigned char>(c));
  };
  static constexpr std::array<unsigned, 20> codes{
      key('A', 'L', 'A'), key('A', 'R', 'G'), key('A', 'S', 'N'), key('A', 'S', 'P'),
      key('C', 'Y', 'S'), key('G', 'L', 'N'), key('G', 'L', 'U'), key('G', 'L', 'Y'),
      key('H', 'I', 'S'), key('I', 'L', 'E'), key('L', 'E', 'U'), key('L', 'Y', 'S'),
      key('M', 'E', 'T'), key('P', 'H', 'E'), key('P', 'R', 'O'), key('S', 'E', 'R'),
      key('T', 'H', 'R'), key('T', 'R', 'P'), key('T', 'Y', 'R'), key('V', 'A', 'L')};
  if (residue_label.size() < 3) return 0;
  unsigned const name = key(residue_label[0], residue_label[1], residue_label[2]);
  auto const it = std::lower_bound(codes.begin(), codes.end(), name);
  return (it != codes.end() && *it == name) ? static_cast<int>(it - codes.begin()) + 1 : 0;
}

FileOrderedProteinAtom::FileOrderedProteinAtom(int file_order, Element const& element,
                                               std::string label, std::string residue_label,
                                               THandle<Site> const& site)
    : FileOrderedAtom3d(file_order, element, std::move(label), site),
      ProteinAtom(std::move(residue_label)) {}

THandle<Atom> FileOrderedProteinAtom::clone() const {
  auto atom = make_handle<FileOrderedProteinAtom>(file_order(), element(), label(), residue_label(),
                                                  THandle<Site>());
  copy_to_(*atom);
  return atom;
}

}  // namespace kora
