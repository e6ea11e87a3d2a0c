// ResFile::read: the instruction lines in the steps of the format. Cell and symmetry (TITL,
// CELL, ZERR, LATT, SYMM, SFAC); atoms and free variables (FVAR, the atom lines with the
// PART, AFIX and RESI in force, difference-map peaks); then the crystal: the space group,
// the atoms' sites and the molecules they make.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kora/kernel/bond_detector.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/kernel/symmetry.hpp"
#include "kora/shelx/res_file.hpp"
#include "shelx/res_instructions.hpp"

namespace kora {

namespace {

using detail::is_res_letter;

[[noreturn]] void fail(char const* message) {
  throw std::runtime_error(std::string("ResFile::read(): ") + message);
}

// A difference-map peak's name: Q and a digit ("Q1", "Q12"), in upper case.
bool is_peak_name(std::string_view name) {
  return name.size() >= 2 && name[0] == 'Q' && std::isdigit(static_cast<unsigned char>(name[1]));
}

// A cell parameter with the uncertainty of ZERR: exact right angles (90 and 120) without
// an uncertainty stay exact; other uncertainties keep at most two digits up to 19.
UncertainValue set_uncertainty(double value, Uncertainty u) {
  auto const near = [&](double target) { return value >= target - 1e-7 && value - 1e-7 <= target; };
  if ((near(90.0) || near(120.0)) && u.value() == 0.0) {
    u = Uncertainty();
  } else {
    u.round_down(19);
  }
  return UncertainValue(value, u);
}

// The element a SHELX symbol names, whatever its case ("CL" is chlorine).
Element element_of(std::string symbol) {
  lower_element_case(symbol);
  return Element(symbol);
}

// The centring of a SHELX lattice number: 1 P, 2 I, 3 R (obverse), 4 F, 5 A, 6 B, 7 C.
Spacegroup::Centring centring_of_lattice(int lattice) {
  static constexpr Spacegroup::Centring centrings[] = {
      Spacegroup::primitive,    Spacegroup::primitive,    Spacegroup::body_centred,
      Spacegroup::rhombohedral, Spacegroup::face_centred, Spacegroup::a_centred,
      Spacegroup::b_centred,    Spacegroup::c_centred};
  int const n = std::abs(lattice);
  return n >= 1 && n <= 7 ? centrings[n] : Spacegroup::primitive;
}

// The first field of an instruction as an integer, 0 when there is none or it is no integer.
int first_integer(std::vector<std::string> const& fields) {
  bool ok = false;
  int const n = fields.empty() ? 0 : string_to_int(fields[0], ok);
  return ok ? n : 0;
}

// A difference-map peak line: name, scattering number, x, y, z, [sof, U, height]. Lines
// that do not read as one are passed over.
void add_peak(std::vector<std::string> const& fields, std::vector<DensityPeak>& peaks) {
  if (fields.size() < 5 || !is_peak_name(fields[0])) return;
  bool ok = false;
  string_to_int(fields[1], ok);
  if (!ok) return;
  DensityPeak peak;
  peak.label = fields[0];
  for (std::size_t k = 0; k < 3; ++k) {
    double& x = peak.fractional[k];
    x = string_to_double(fields[k + 2], ok);
    if (!ok) return;
    // A fixed coordinate (10 + x) is given back as x; peaks refer to no free variable.
    if (x >= 5.0 && x < 15.0) x -= 10.0;
    if (!(std::fabs(x) < 5.0)) return;
  }
  if (fields.size() > 7) peak.height = string_to_double(fields[7], peak.has_height);
  peaks.push_back(peak);
}

}  // namespace

void resolve_free_variable(double& x, std::vector<double> const& free_variables) {
  auto const variable = [&](long number) {
    if (number < 1 || static_cast<std::size_t>(number) > free_variables.size()) {
      fail("free variable not found.");
    }
    return free_variables[static_cast<std::size_t>(number - 1)];
  };
  // A value this large would name a free variable beyond any list (and beyond what a long
  // holds once divided by ten).
  if (!(std::fabs(x) < 1e12)) fail("free variable not found.");
  if (x < -15.0) {
    long const m = std::lrint(x / 10.0);
    double const p = x - 10.0 * static_cast<double>(m);
    x = p * (variable(-m) - 1.0);
  }
  if (x < 5.0) return;
  if (x < 15.0) {
    x -= 10.0;
    return;
  }
  long const m = std::lrint(x / 10.0);
  double const p = x - 10.0 * static_cast<double>(m);
  x = p * variable(m);
}

// Everything one read works with: the file read into, what the cell and symmetry
// instructions said so far, the atoms read with what their sites will be made of, and the
// SHELX state in force for the atom lines that follow.
struct ResFile::ReadState {
  ReadState(ResFile& owner, bool standard_reading) : file(owner), standard(standard_reading) {}

  // What an atom's site is made of once the space group is known.
  struct AtomRecord {
    Point position;
    double occupancy;
    AtomicDisplacementParameters displacement;
  };

  ResFile& file;
  bool const standard;  // the read options ask for standard reading
  // Cell and symmetry.
  UncertainValue parameters[6];
  int lattice = 1;
  bool cell_seen = false;
  bool lattice_seen = false;
  THandle<std::vector<CrystalSymmetryOperator>> operators =
      make_handle<std::vector<CrystalSymmetryOperator>>(1);
  std::vector<Element> elements;  // SFAC: the elements of the scattering numbers
  // Atoms and free variables.
  std::vector<double> free_variables;
  THandle<std::vector<THandle<Atom>>> atoms = make_handle<std::vector<THandle<Atom>>>();
  std::vector<AtomRecord> records;  // one per atom
  // The U of the last atom that did not ride, which the U of riding atoms multiply.
  bool previous_u_known = false;
  double previous_u = 0.0;
  // SHELX state in force for the atoms that follow: PART, AFIX and RESI.
  int part = 0;
  int afix = 0;
  std::optional<double> part_occupancy;
  std::string residue_class;
  int residue_number = 0;
  // Standard reading: the model ends at HKLF (reflection data or anything else may follow)
  // or END; past it, only difference-map peaks are taken.
  bool model_done = false;
  // Reused for every line.
  std::string continuation;
  std::vector<std::string> fields;
  std::vector<std::string> more;

  // Cell and symmetry: true when the keyword is one of them.
  bool read_cell_instruction(std::string_view keyword, std::string_view text);
  void read_cell(std::string_view text);
  void read_zerr(std::string_view text);
  void read_latt(std::string_view text);
  void read_sfac(std::string_view text);

  // Atoms and free variables: true when the keyword sets state for the atoms that follow.
  bool read_atom_instruction(std::string_view keyword, std::string_view text);
  void read_part(std::string_view text);
  void read_resi(std::string_view text);
  void read_atom_line(std::string const& line, std::istream& is);
  std::optional<Element> atom_element(std::string const& line) const;
  void read_continuation(std::istream& is);
  AtomicDisplacementParameters read_displacement(double& written_u);
  void add_atom(Element const& element, AtomRecord const& record, double written_occupancy,
                double written_u);

  // Sites and molecules, once the data have ended.
  void make_cell();
  void add_lattice_operators();
  void place_atoms();
  void make_molecules();
};

void ResFile::read(std::istream& is) {
  clear();
  ReadState state(*this, read_options().standard());
  std::string line;
  while (is.good()) {
    kora::getline(is, line);
    if (is.eof() && line.empty()) break;
    if (std::size_t const bang = line.find('!'); bang != std::string::npos) line.erase(bang);
    if (line.size() <= 2) continue;
    line = toupper(line);
    std::string_view const keyword = std::string_view(line).substr(0, 4);
    if (keyword.substr(0, 3) == "END") {
      if (!state.standard) break;
      state.model_done = true;
      continue;
    }
    if (keyword.substr(0, 3) == "REM") continue;
    if (line.size() <= 3 || !is_res_letter(line[0])) continue;
    std::string_view const text = std::string_view(line).substr(4);
    if (state.standard && (state.model_done || is_peak_name(keyword))) {
      split(line, state.fields, " \t");
      add_peak(state.fields, details_.density_peaks);
    } else if (keyword == "HKLF") {
      state.model_done = state.standard;
    } else if (keyword != "L.S." && !state.read_cell_instruction(keyword, text) &&
               !state.read_atom_instruction(keyword, text) &&
               !detail::res_list_holds(detail::res_ignored_instructions, keyword)) {
      state.read_atom_line(line, is);
    }
  }
  state.make_cell();
  state.place_atoms();
  state.make_molecules();
}

// Cell and symmetry

bool ResFile::ReadState::read_cell_instruction(std::string_view keyword, std::string_view text) {
  if (keyword == "TITL") {
    // The title is not stored.
  } else if (keyword == "CELL") {
    read_cell(text);
  } else if (keyword == "ZERR") {
    read_zerr(text);
  } else if (keyword == "LATT") {
    read_latt(text);
  } else if (keyword == "SYMM") {
    operators->push_back(CrystalSymmetryTransformation(std::string(text)));
  } else if (keyword == "SFAC") {
    read_sfac(text);
  } else {
    return false;
  }
  return true;
}

void ResFile::ReadState::read_cell(std::string_view text) {
  if (cell_seen) fail("CELL keyword occurred more than once.");
  split(text, fields, " \t");
  // The wavelength and six parameters; a shorter line is ignored.
  if (fields.size() >= 7) {
    for (int i = 0; i < 6; ++i)
      parameters[i] = UncertainValue::parse(fields[std::size_t(i) + 1]);
    file.cell_ = make_handle<Cell>(parameters[0], parameters[1], parameters[2], parameters[3],
                                   parameters[4], parameters[5], Spacegroup());
  }
  cell_seen = true;
}

void ResFile::ReadState::read_zerr(std::string_view text) {
  split(text, fields, " \t");
  if (fields.size() >= 7) {
    for (int i = 0; i < 6; ++i) {
      parameters[i] =
          set_uncertainty(parameters[i].value(), Uncertainty::parse(fields[std::size_t(i) + 1]));
    }
  }
}

void ResFile::ReadState::read_latt(std::string_view text) {
  if (lattice_seen) fail("LATT keyword occurred more than once.");
  bool ok = false;
  int const n = string_to_int(text, ok);
  if (ok && n != 0 && n >= -7 && n <= 7) {
    lattice = n;
    lattice_seen = true;
  }
}

// SFAC symbols name the elements of the scattering numbers, in order; an SFAC line that gives
// a scattering factor as numbers adds none.
void ResFile::ReadState::read_sfac(std::string_view text) {
  split(strip(text, " \t"), fields, " \t");
  bool numeric = false;
  if (fields.size() >= 2) string_to_double(fields[1], numeric);
  if (!numeric) {
    for (std::string const& symbol : fields)
      elements.push_back(element_of(symbol));
  }
}

// Atoms and free variables

bool ResFile::ReadState::read_atom_instruction(std::string_view keyword, std::string_view text) {
  if (keyword == "FVAR") {
    split(text, fields, " \t");
    for (std::string const& f : fields)
      free_variables.push_back(string_to_double(f, nullptr));
  } else if (keyword == "PART") {
    read_part(text);
  } else if (keyword == "AFIX") {
    split(text, fields, " \t");
    afix = first_integer(fields);
  } else if (keyword == "RESI") {
    read_resi(text);
  } else {
    return false;
  }
  return true;
}

// PART n [sof]: the disorder part of the atoms that follow (0 the common part); in standard
// reading, sof is the occupancy code of the part's atoms.
void ResFile::ReadState::read_part(std::string_view text) {
  split(text, fields, " \t");
  part = first_integer(fields);
  bool sof_ok = false;
  double const sof = fields.size() > 1 ? string_to_double(fields[1], sof_ok) : 0.0;
  part_occupancy = standard && sof_ok && part != 0 ? std::optional<double>(sof) : std::nullopt;
}

// RESI class number, in either order; RESI alone or RESI 0 returns to no residue.
void ResFile::ReadState::read_resi(std::string_view text) {
  split(text, fields, " \t");
  residue_class.clear();
  residue_number = 0;
  for (std::size_t i = 0; i < fields.size() && i < 2; ++i) {
    bool ok = false;
    int const n = string_to_int(fields[i], ok);
    if (ok) {
      residue_number = n;
    } else if (residue_class.empty()) {
      residue_class = fields[i];
    }
  }
}

// An atom line: name, scattering number, x, y, z, [occupancy, [U or U11 U22 =...]]. Lines
// that do not read as one are passed over.
void ResFile::ReadState::read_atom_line(std::string const& line, std::istream& is) {
  split(line, fields, " ");
  if (fields.size() < 5) return;
  if (fields[1].find('.') != std::string::npos) return;
  std::optional<Element> const element = atom_element(line);
  if (!element) return;
  bool okx = false, oky = false, okz = false;
  double x = string_to_double(fields[2], okx);
  double y = string_to_double(fields[3], oky);
  double z = string_to_double(fields[4], okz);
  if (!okx || !oky || !okz) return;
  if (!cell_seen) fail("Atom line found before CELL keyword.");
  double occupancy = 1.0;
  if (fields.size() > 5) {
    bool okocc = false;
    occupancy = string_to_double(fields[5], okocc);
    if (!okocc) occupancy = 1.0;
  }
  if (part_occupancy) occupancy = *part_occupancy;
  if (fields.size() >= 7 && fields.back().back() == '=') read_continuation(is);
  double const written_occupancy = occupancy;
  for (double* value : {&x, &y, &z, &occupancy})
    resolve_free_variable(*value, free_variables);
  double written_u = 0.0;
  AtomicDisplacementParameters const displacement = read_displacement(written_u);
  add_atom(*element, {Point(x, y, z), occupancy, displacement}, written_occupancy, written_u);
}

// The element of an atom line: the SFAC element of its scattering number, else the one or
// two letters its name starts with (a Q peak is carbon). None when the scattering number is
// no integer, or the name starts with three letters: an instruction this reader ignores.
std::optional<Element> ResFile::ReadState::atom_element(std::string const& line) const {
  bool ok = false;
  int const number = string_to_int(fields[1], ok);
  if (!ok) return std::nullopt;
  if (number >= 1 && static_cast<std::size_t>(number - 1) < elements.size()) {
    return elements[static_cast<std::size_t>(number - 1)];
  }
  if (is_res_letter(line[1])) {
    if (is_res_letter(line[2])) return std::nullopt;
    return element_of(line.substr(0, 2));
  }
  return element_of(line[0] == 'Q' ? std::string("C") : line.substr(0, 1));
}

// An atom line that ends in '=' goes on in the next line: its fields follow.
void ResFile::ReadState::read_continuation(std::istream& is) {
  if (fields.back() == "=") {
    fields.pop_back();
  } else {
    fields.back().pop_back();
  }
  if (!is.good()) fail("Continuation line missing.");
  kora::getline(is, continuation);
  if (is.eof() && continuation.empty()) fail("Continuation line missing.");
  split(continuation, more, " ");
  fields.insert(fields.end(), more.begin(), more.end());
}

// The displacement of an atom line: the six U of an anisotropic atom (file order U11 U22 U33
// U23 U13 U12), else its U (0.05 when the line gives none). A negative U rides on the last
// atom that did not ride: -1.2 is 1.2 times that atom's U (0.05 when there is none).
// `written_u` is the U code as written, 0 for an anisotropic atom.
AtomicDisplacementParameters ResFile::ReadState::read_displacement(double& written_u) {
  if (fields.size() > 11) {
    double uij[6] = {0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 6; ++i)
      uij[i] = string_to_double(fields[std::size_t(i) + 6], nullptr);
    written_u = 0.0;
    for (double& value : uij)
      resolve_free_variable(value, free_variables);
    AtomicDisplacementParameters const displacement(uij[0], uij[1], uij[2], uij[5], uij[4], uij[3],
                                                    AtomicDisplacementParameters::anisotropic);
    previous_u = displacement.u_equivalent(*file.cell_);
    previous_u_known = true;
    return displacement;
  }
  double u = fields.size() >= 7 ? string_to_double(fields[6], nullptr) : 0.05;
  written_u = u;
  bool const riding = u < 0.0;
  if (riding) u = previous_u_known ? std::fabs(u) * previous_u : 0.05;
  resolve_free_variable(u, free_variables);
  if (!riding) {
    previous_u = u;
    previous_u_known = true;
  }
  return AtomicDisplacementParameters(UncertainValue(u), AtomicDisplacementParameters::isotropic,
                                      *file.cell_);
}

// The atom of an atom line, in file order, with the SHELX state in force and its codes as
// written; its site waits for the space group.
void ResFile::ReadState::add_atom(Element const& element, AtomRecord const& record,
                                  double written_occupancy, double written_u) {
  auto atom = make_handle<FileOrderedAtom3d>(static_cast<int>(atoms->size()), element, fields[0],
                                             THandle<Site>());
  AtomDetails& details = *atom->mutable_details();
  details.part = part;
  details.afix = afix;
  details.has_shelx_codes = true;
  details.shelx_occupancy = written_occupancy;
  details.shelx_u = written_u;
  details.residue_name = residue_class;
  details.residue_number = residue_number;
  details.has_file_position = true;
  for (std::size_t k = 0; k < 3; ++k)
    details.file_position[k] = record.position[k];
  atoms->push_back(THandle<Atom>(atom));
  records.push_back(record);
}

// Sites and molecules

// The cell with the space group of LATT and SYMM: the listed operators (the identity first)
// with the centring translations and the inversion, each operator once.
void ResFile::ReadState::make_cell() {
  if (!cell_seen) {
    if (!atoms->empty()) fail("No CELL keyword found.");
    operators->clear();
  } else {
    add_lattice_operators();
  }
  auto kept = make_handle<std::vector<CrystalSymmetryOperator>>();
  for (std::size_t i = 0; i < operators->size(); ++i) {
    bool later_equal = false;
    for (std::size_t j = i + 1; j < operators->size() && !later_equal; ++j) {
      later_equal = equals((*operators)[i], (*operators)[j], 1e-7);
    }
    if (!later_equal) kept->push_back((*operators)[i]);
  }
  Spacegroup const spacegroup(kept, 0, "");
  *file.cell_ = Cell(parameters[0], parameters[1], parameters[2], parameters[3], parameters[4],
                     parameters[5], spacegroup);
  if (!file.cell_->valid()) fail("No unit cell found.");
}

// The operators the lattice adds to those listed: centring translations, then the inversion
// of a centrosymmetric lattice (LATT n > 0).
void ResFile::ReadState::add_lattice_operators() {
  std::size_t const listed = operators->size();
  for (Vector<double, 3> const& v : Spacegroup::standard_centring_vectors(
           centring_of_lattice(lattice), Spacegroup::include_origin)) {
    for (std::size_t i = 0; i < listed; ++i) {
      CrystalSymmetryOperator const op = (*operators)[i];
      operators->push_back(CrystalSymmetryTransformation(op.rotation(), op.translation() + v));
    }
  }
  if (lattice > 0) {
    std::size_t const now = operators->size();
    for (std::size_t i = 0; i < now; ++i) {
      CrystalSymmetryOperator const op = (*operators)[i];
      // The classic reading keeps the translation; SHELX puts the centre of symmetry at the
      // origin, so that x,y,z -> -(R x + t), which standard reading follows.
      Vector<double, 3> const t = standard ? -op.translation() : op.translation();
      operators->push_back(CrystalSymmetryTransformation(-op.rotation(), t));
    }
  }
}

// Every atom's site: its position, its occupancy times the order of the site (at most 1) and
// its displacement.
void ResFile::ReadState::place_atoms() {
  Cell const& cell = *file.cell_;
  for (std::size_t i = 0; i < atoms->size(); ++i) {
    AtomRecord const& r = records[i];
    double const occupancy = std::min(
        1.0, r.occupancy *
                 cell.site_order(r.position, standard ? res_special_position_tolerance : 1e-7));
    (*atoms)[i]->set_site(
        make_handle<Site>(r.position, cell.orthogonal(r.position), UncertainValue(occupancy),
                          make_handle<Array<Uncertainty, 3>>(),
                          make_handle<AtomicDisplacementParameters>(r.displacement)));
  }
}

// The asymmetric unit as read, the structure details, and the molecules the atoms make,
// completed by symmetry.
void ResFile::ReadState::make_molecules() {
  file.asymmetric_unit_ = make_handle<std::vector<THandle<Atom>>>(*atoms);
  file.molecules_read_ = true;
  file.details_.source_format = "res";
  file.details_.has_cell = true;
  file.details_.free_variables = free_variables;
  BondDetector detector(BondDetector::crystal, BondDetector::prune_hydrogens,
                        BondDistanceLimit(0.55, false));
  detector.set_separate_parts(standard);
  file.molecules_ = detector.molecules(*atoms, *file.cell_);
}

}  // namespace kora
