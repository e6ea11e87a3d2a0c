#include "kora/mol2/mol2_bond.hpp"

#include <ios>
#include <istream>
#include <ostream>
#include <stdexcept>

#include "kernel/handle_arena.hpp"
#include "kernel/text_cursor.hpp"
#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "mol2/mol2_lines.hpp"

namespace kora {

void Mol2BondLine::read(std::istream& is) {
  std::string buffer;
  read(is, buffer);
}

void Mol2BondLine::read(std::istream& is, std::string& buffer) {
  kora::getline(is, buffer);
  detail::TextCursor fields(buffer);
  (void)(fields.read(bond_id_) && fields.read(origin_) && fields.read(target_) &&
         fields.read(type_));
}

void Mol2BondLine::print(std::ostream& os) const {
  char const fill = os.fill();
  std::string line;
  detail::append_int(line, bond_id_, 6, fill);
  detail::append_int(line, origin_, 6, fill);
  detail::append_int(line, target_, 6, fill);
  detail::append_right(line, type_, 5, fill);
  os.write(line.data(), static_cast<std::streamsize>(line.size()));
  os.setf(std::ios::right, std::ios::adjustfield);
}

BondType Mol2BondLine::sybyl_to_symbol(std::string const& type) const {
  struct Code {
    char const* code;
    BondType type;
  };
  static constexpr Code codes[] = {{"1", single_bond},       {"2", double_bond},
                                   {"3", triple_bond},       {"ar", aromatic_bond},
                                   {"am", single_bond},      {"4", quadruple_bond},
                                   {"po", polymeric_bond},   {"de", delocalised_bond},
                                   {"dl", delocalised_bond}, {"pi", pi_bond}};
  for (Code const& c : codes) {
    if (type == c.code) return c.type;
  }
  return unknown_bond;
}

THandle<BondData> Mol2BondLine::bond() const {
  return make_handle<BondData>(origin_ - 1, target_ - 1, sybyl_to_symbol(type_));
}

Mol2Bond::Mol2Bond(Molecule const& molecule) {
  std::vector<std::string> const types = molecule.sybyl_bond_types();
  int const n = molecule.nbonds();
  lines_.reserve(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    auto const [a, b] = molecule.bond_atoms(i);
    lines_.push_back(
        make_handle<Mol2BondLine>(i + 1, a + 1, b + 1, types[static_cast<std::size_t>(i)]));
  }
}

Mol2Bond::Mol2Bond(std::vector<THandle<MoleculeSubset>> const& subsets)
    : Mol2Bond(subsets, detail::types_of_subsets(subsets, [](MoleculeSubset const& subset) {
                 return subset.sybyl_bond_types();
               })) {}

Mol2Bond::Mol2Bond(std::vector<THandle<MoleculeSubset>> const& subsets,
                   std::vector<std::vector<std::string>> const& all_types) {
  detail::check_type_count("Mol2Bond", "subsets", all_types.size(), subsets.size());
  int id = 1;
  int offset = 1;
  for (std::size_t k = 0; k < subsets.size(); ++k) {
    THandle<MoleculeSubset> const& subset = subsets[k];
    std::vector<std::string> const& types = all_types[k];
    detail::check_type_count("Mol2Bond", "bonds", types.size(),
                             static_cast<std::size_t>(subset->nbonds()));
    for (int j = 0; j < subset->nbonds(); ++j) {
      auto const [a, b] = subset->bond_atoms(j);
      lines_.push_back(make_handle<Mol2BondLine>(id++, a + offset, b + offset,
                                                 types[static_cast<std::size_t>(j)]));
    }
    offset += subset->natoms();
  }
}

void Mol2Bond::read(std::istream& is, int count) {
  detail::read_section_lines(is, count, maximum_count, "Mol2Bond::read", "bonds", lines_);
}

void Mol2Bond::read(std::istream& is, int count, ReadOptions const& options) {
  detail::read_section_lines(is, count, maximum_count, "Mol2Bond::read", "bonds", lines_,
                             options.standard());
}

void Mol2Bond::print(std::ostream& os) const {
  detail::print_section_lines(os, lines_);
}

THandle<std::vector<THandle<BondData>>> Mol2Bond::bonds() const {
  auto bonds = make_handle<std::vector<THandle<BondData>>>();
  bonds->reserve(lines_.size());
  detail::HandleArena<BondData> made(lines_.size());
  for (THandle<Mol2BondLine> const& line : lines_) {
    bonds->push_back(
        made.make(line->origin() - 1, line->target() - 1, line->sybyl_to_symbol(line->type())));
  }
  return bonds;
}

bool Mol2Bond::operator==(Mol2Bond const& other) const {
  return detail::equal_section_lines(lines_, other.lines_);
}

}  // namespace kora
