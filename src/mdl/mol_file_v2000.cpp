// Reading the V2000 connection table: atom block, bond block and property lines up to
// "M  END", then the record's data items.

#include <algorithm>
#include <cstdint>
#include <istream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/handle_arena.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

namespace {

using detail::c_double;
using detail::c_int;
using detail::column;

using AtomList = std::vector<THandle<Atom>>;

// The entries of a charge or isotope property line ("M  CHG  2   1   1   4  -1"): the
// announced count in columns 7-9, then atom number and value in columns 11-13 and 15-17 and
// every 8 columns further, read until the map holds that many entries or the line ends.
// Atom numbers become 0-based indexes; a repeated atom keeps its last value.
std::map<int, int> property_entries(std::string_view line) {
  std::map<int, int> entries;
  int const count = c_int(column(line, 6, 3));
  for (std::size_t at = 10; static_cast<int>(entries.size()) < count && at < line.size(); at += 8) {
    entries[c_int(column(line, at, 3)) - 1] = c_int(column(line, at + 4, 3));
  }
  return entries;
}

// "M  CHG": a non-zero charge replaces the atom block's charge; a zero entry does not reset
// it.
void apply_charges(std::string_view line, AtomList const& atoms) {
  for (auto const& [index, charge] : property_entries(line)) {
    if (index < 0 || index >= static_cast<int>(atoms.size()) || charge == 0) continue;
    atoms[static_cast<std::size_t>(index)]->set_formal_charge(static_cast<std::int16_t>(charge));
  }
}

// "M  ISO": every entry is kept as the atom's isotope mass number; in the model itself
// only mass 2 on a hydrogen matters, which makes the atom deuterium.
void apply_isotopes(std::string_view line, AtomList const& atoms) {
  for (auto const& [index, mass] : property_entries(line)) {
    if (index < 0 || index >= static_cast<int>(atoms.size())) continue;
    THandle<Atom> const& atom = atoms[static_cast<std::size_t>(index)];
    if (AtomDetails* details = atom->mutable_details(); details && mass > 0) {
      details->mass_number = mass;
    }
    if (mass == 2 && atom->element().symbol() == "H") atom->set_element(Element("D"));
  }
}

// "M  RAD": the radical codes (1 singlet, 2 doublet, 3 triplet; 0 none) of the atoms.
void apply_radicals(std::string_view line, AtomList const& atoms) {
  for (auto const& [index, radical] : property_entries(line)) {
    if (index < 0 || index >= static_cast<int>(atoms.size()) || radical < 0 || radical > 3) {
      continue;
    }
    if (AtomDetails* details = atoms[static_cast<std::size_t>(index)]->mutable_details()) {
      details->radical = radical;
    }
  }
}

bool has_nonzero_digit(std::string_view text) {
  return text.find_first_of("123456789") != std::string_view::npos;
}

}  // namespace

void MolFile::read_V2000(std::istream& is) {
  auto const atoms = make_handle<AtomList>();
  std::vector<BondData> bonds;
  std::vector<Point> coordinates;

  std::string_view const counts = counts_line_;
  int const natoms = c_int(column(counts, 0, 3));
  int const nbonds = counts.size() >= 6 ? c_int(column(counts, 3, 3)) : 0;
  int const nlists = counts.size() >= 9 ? c_int(column(counts, 6, 3)) : 0;
  int const nstext = counts.size() >= 18 ? c_int(column(counts, 15, 3)) : 0;
  // The counts come from the file: reserve for a plausible molecule only.
  constexpr int plausible = 4096;
  atoms->reserve(static_cast<std::size_t>(std::clamp(natoms, 0, plausible)));
  coordinates.reserve(static_cast<std::size_t>(std::clamp(natoms, 0, plausible)));
  bonds.reserve(static_cast<std::size_t>(std::clamp(nbonds, 0, plausible)));
  detail::HandleArena<FileOrderedAtom3d> made(
      static_cast<std::size_t>(std::clamp(natoms, 0, plausible)));

  int k = 0;  // non-empty lines read
  int zero_z = 0;
  bool ended = false;
  std::string line;
  std::string symbol;
  std::string first_header;  // a data header that ended the table
  while (!is.eof()) {
    kora::getline(is, line);
    if (detail::ends_record(line, read_options().standard()) ||
        detail::stream_exhausted(is, line)) {
      ended = true;
      break;
    }
    if (line.empty()) continue;
    ++k;
    if (static_cast<int>(atoms->size()) < natoms) {
      if (line.find('.') == std::string::npos) {
        throw std::runtime_error(detail::short_atom_block_message);
      }
      double const x = c_double(column(line, 0, 10));
      double const y = c_double(column(line, 10, 10));
      double const z = c_double(column(line, 20, 10));
      if (detail::is_float_zero(z)) ++zero_z;
      symbol.assign(trim_view(column(line, 31, 3), " \t"));
      int const mass_difference = c_int(column(line, 34, 2));
      if (symbol == "H" && mass_difference == 1) symbol = "D";
      verify_symbol(symbol);
      int const n = static_cast<int>(atoms->size()) + 1;
      // Standard reading takes tritium for the hydrogen isotope it is.
      Element const element = read_options().standard() && symbol == "T"
                                  ? Element(1)
                                  : detail::element_of_symbol(symbol);
      auto const atom = made.make(n, element, symbol + int_to_string(n), THandle<Site>());
      int const charge = detail::formal_charge_of_code(c_int(column(line, 36, 3)));
      atom->set_formal_charge(static_cast<std::int16_t>(charge));
      AtomDetails& details = *atom->mutable_details();
      details.mass_number = detail::mass_number_of_atom_line(symbol, element, mass_difference);
      if (!element.is_set()) details.element_symbol = symbol;
      atoms->push_back(THandle<Atom>(atom));
      coordinates.push_back(Point{x, y, z});
    } else if (static_cast<int>(bonds.size()) < nbonds) {
      int const first = c_int(column(line, 0, 3));
      int const second = c_int(column(line, 3, 3));
      BondType const type = detail::bond_type_of_code(c_int(column(line, 6, 3)));
      try {
        bonds.emplace_back(first - 1, second - 1, type);
      } catch (std::invalid_argument const&) {
        throw std::runtime_error(detail::bad_bonds_message);
      }
    } else {
      if (nlists != 0) throw std::runtime_error("Atom lists present, unable to process these");
      if (nstext != 0) throw std::runtime_error("Stext entries present, unable to process these");
      // Standard reading: a data header ends a table that has no "M  END" (older files).
      if (std::string_view const text = trim_view(line, " \t");
          read_options().standard() && !text.empty() && text.front() == '>') {
        first_header.assign(text);
        break;
      }
      if (line.size() < 6) continue;
      if (k == natoms + nbonds + nlists + 1 && has_nonzero_digit(column(line, 0, 3))) {
        throw std::runtime_error("Unexpected additional line in Bond block");
      }
      if (line[0] != 'M') continue;
      std::string_view const key = column(line, 3, 3);
      if (key == "END") break;
      if (key == "CHG") {
        apply_charges(line, *atoms);
      } else if (key == "ISO") {
        apply_isotopes(line, *atoms);
      } else if (key == "RAD") {
        apply_radicals(line, *atoms);
      }
    }
  }

  if (!ended) tags_->read_(is, first_header, read_options().standard());
  if (zero_z == natoms && dimensional_code_ != "3D" && dimensional_code_ != "3d") two_d_ = true;
  record_structure_details_(zero_z == static_cast<int>(atoms->size()));
  try {
    molecules_ = create_molecules(*cell_, *atoms, bonds, coordinates, THandle<Transformation>());
  } catch (std::invalid_argument const&) {
    throw std::runtime_error(detail::bad_bonds_message);
  }
}

}  // namespace kora
