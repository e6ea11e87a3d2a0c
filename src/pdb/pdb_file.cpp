// PdbFile: construction, conversion to and from the model, and writing.

#include "kora/pdb/pdb_file.hpp"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/text_format.hpp"

namespace kora {

PdbFile::PdbFile() : cell_(make_handle<Cell>()), molecules_(make_handle<MoleculeList>()) {}

PdbFile::PdbFile(std::string const& file_name) : PdbFile() {
  MoleculeFile::read(file_name);
}

PdbFile::~PdbFile() = default;

void PdbFile::clear() {
  molecules_ = make_handle<MoleculeList>();
  cell_ = make_handle<Cell>();
  details_ = StructureDetails();
}

void PdbFile::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  molecules_->push_back(THandle<Molecule>(make_handle<Molecule3d>(molecule)));
}

void PdbFile::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  // A PDB file holds the molecules of one cell: another cell replaces everything.
  if (!(maker.cell() == *cell_)) {
    clear();
    cell_ = make_handle<Cell>(maker.cell());
  }
  details_ = maker.details();
  for (int i = 0; i < maker.nmolecules(); ++i)
    molecules_->push_back(maker.molecule(i));
}

void PdbFile::add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  if (!(crystal.cell() == *cell_)) {
    clear();
    cell_ = make_handle<Cell>(crystal.cell());
  }
  for (int i = 0; i < crystal.nmolecules(); ++i)
    molecules_->push_back(crystal.molecule(i));
}

void PdbFile::add(CrystalStructureDatabaseEntry const& entry) {
  add(*entry.crystal_maker(), entry.identifier());
}

THandle<CrystalStructureDatabaseEntry> PdbFile::database_entry() const {
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<CrystalStructureImmediateDatabaseEntry>(identifier_, crystal_maker()));
}

THandle<Molecule> PdbFile::molecule() const {
  auto const merged = make_handle<Molecule3d>();
  for (THandle<Molecule> const& m : *molecules_) {
    MoleculeSubset placed(m);
    placed.select_3d();
    merged->add(placed);
  }
  return THandle<Molecule>(merged);
}

THandle<Cell> PdbFile::cell() const {
  return make_handle<Cell>(*cell_);
}

THandle<Crystal> PdbFile::crystal() const {
  return make_handle<Crystal>(*cell_, molecules_);
}

THandle<CrystalMaker> PdbFile::crystal_maker() const {
  auto maker = make_handle<CrystalMaker>(*cell_, THandle<MoleculeList>(), THandle<MoleculeList>(),
                                         molecules_);
  maker->mutable_details() = details_;
  return THandle<CrystalMaker>(maker);
}

namespace {

constexpr double radians_to_degrees = 57.29577951308232;

// The space group symbol as CRYST1 writes it: R groups on rhombohedral axes lose their
// trailing 'r', and R groups in a hexagonal cell are written with H, so that reading gives
// the same group back.
std::string cryst1_symbol(Cell const& cell) {
  std::string symbol = cell.spacegroup().symbol();
  if (symbol.empty() || symbol.front() != 'R') return symbol;
  if (symbol.back() == 'r') {
    symbol.pop_back();
    return symbol;
  }
  Angle const tolerance = Angle::from_degrees(1e-7);
  bool const hexagonal = std::fabs(cell.a() - cell.b()) <= 1e-7 &&
                         equals(cell.alpha(), Angle::from_degrees(90), tolerance) &&
                         equals(cell.beta(), Angle::from_degrees(90), tolerance) &&
                         equals(cell.gamma(), Angle::from_degrees(120), tolerance);
  if (hexagonal) symbol.front() = 'H';
  return symbol;
}

void end_line(std::string& out) {
  out += '\n';
}

}  // namespace

void PdbFile::print(std::ostream& os) const {
  if (write_options().standard()) {
    print_standard_(os);
    return;
  }
  using detail::append_fixed;
  using detail::append_int;
  THandle<Molecule> const m = molecule();
  Cell const& cell = *cell_;
  std::string out;
  out.reserve(static_cast<std::size_t>(m->natoms()) * 100 + 512);

  out += "HEADER    VRX ENTRY ";
  out += identifier_.str();
  end_line(out);

  out += "CRYST1";
  append_fixed(out, cell.a(), 4, 9);
  append_fixed(out, cell.b(), 4, 9);
  append_fixed(out, cell.c(), 4, 9);
  append_fixed(out, cell.alpha().radians() * radians_to_degrees, 2, 7);
  append_fixed(out, cell.beta().radians() * radians_to_degrees, 2, 7);
  append_fixed(out, cell.gamma().radians() * radians_to_degrees, 2, 7);
  detail::append_right(out, cryst1_symbol(cell), 10);
  end_line(out);

  Matrix<double, 3, 3> const& scale = cell.orthogonal_to_fractional();
  for (std::size_t row = 0; row < 3; ++row) {
    out += "SCALE";
    out += static_cast<char>('1' + row);
    out += "    ";
    for (std::size_t column = 0; column < 3; ++column)
      append_fixed(out, scale(row, column), 6, 10);
    append_fixed(out, 0.0, 6, 15);
    end_line(out);
  }

  int const natoms = m->natoms();
  for (int i = 0; i < natoms; ++i) {
    THandle<Atom> const atom = m->atom(i);
    THandle<Site> const site = atom->site();
    out += "HETATM";
    append_int(out, i + 1, 5);
    out += ' ';
    detail::append_left(out, std::string_view(atom->label()).substr(0, 5), 5);
    out += "UNK 0   1    ";
    Point const& p = site->orthogonal();
    append_fixed(out, p.x(), 3, 8);
    append_fixed(out, p.y(), 3, 8);
    append_fixed(out, p.z(), 3, 8);
    append_fixed(out, site->occupancy().value(), 2, 6);
    append_fixed(out, 0.0, 2, 6);
    end_line(out);
  }

  // One list per atom: the atom, then at most three partners. A bond goes into the list of
  // its first atom while that has room, else into its second atom's, else into a list of
  // its own written after the others.
  std::vector<std::vector<int>> lists(static_cast<std::size_t>(natoms));
  std::vector<std::vector<int>> extra;
  auto const list_of = [&lists](int atom) -> std::vector<int>& {
    std::vector<int>& list = lists[static_cast<std::size_t>(atom)];
    if (list.empty()) list.push_back(atom);
    return list;
  };
  for (int i = 0; i < natoms; ++i) {
    std::vector<int>& own = list_of(i);
    for (int j : m->neighbours(i)) {
      if (j <= i) continue;
      if (own.size() <= 3) {
        own.push_back(j);
      } else if (std::vector<int>& theirs = list_of(j); theirs.size() <= 3) {
        theirs.push_back(i);
      } else {
        extra.push_back({i, j});
      }
    }
  }
  auto const write_conect = [&out](std::vector<int> const& list) {
    out += "CONECT";
    for (int atom : list)
      append_int(out, atom + 1, 5);
    end_line(out);
  };
  for (std::vector<int> const& list : lists)
    write_conect(list);
  for (std::vector<int> const& list : extra)
    write_conect(list);

  std::size_t const conect_lines = lists.size() + extra.size();
  out += "MASTER";
  for (long long value :
       {0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 3LL, static_cast<long long>(natoms), 0LL,
        static_cast<long long>(conect_lines), 0LL})
    append_int(out, value, 5);
  end_line(out);
  out += "END";
  end_line(out);

  os.write(out.data(), static_cast<std::streamsize>(out.size()));
  os.flush();
}

}  // namespace kora
