#include "kora/shelx/res_file.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <istream>
#include <map>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "kernel/text_format.hpp"
#include "kora/kernel/bond_detector.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/kernel/symmetry.hpp"
#include "shelx/res_writing.hpp"

namespace kora {

namespace {

[[noreturn]] void fail(char const* message) {
  throw std::runtime_error(std::string("ResFile::read(): ") + message);
}

// Instructions that carry nothing a structure needs.
constexpr std::string_view ignored_instructions[] = {
    "ACTA", "ANIS", "BASF", "BIND", "BLOC", "BOND", "BUMP", "CGLS", "CHIV", "CONF", "CONN", "DAMP",
    "DANG", "DEFS", "DELU", "DFIX", "DISP", "EADP", "EQIV", "EXTI", "EXYZ", "FEND", "FLAT", "FMAP",
    "FRAG", "FREE", "GRID", "HFIX", "HOPE", "HTAB", "ISOR", "LAUE", "LIST", "MERG", "MOLE", "MORE",
    "MOVE", "MPLA", "NCSY", "OMIT", "PLAN", "RTAB", "SADI", "SAME", "SHEL", "SIMU", "SIZE", "SPEC",
    "STIR", "SUMP", "SWAT", "TEMP", "TIME", "TWIN", "UNIT", "WGHT", "WPDB"};

// Instructions the reader acts on (besides END and REM).
constexpr std::string_view read_instructions[] = {"AFIX", "CELL", "FVAR", "HKLF", "LATT", "PART",
                                                  "RESI", "SFAC", "SYMM", "TITL", "ZERR"};

bool is_instruction(std::string_view head) {
  auto const in = [&](auto const& list) {
    return std::find(std::begin(list), std::end(list), head) != std::end(list);
  };
  return in(ignored_instructions) || in(read_instructions);
}

// A difference-map peak's name: Q and a digit ("Q1", "Q12"), in upper case.
bool is_peak_name(std::string_view name) {
  return name.size() >= 2 && name[0] == 'Q' && std::isdigit(static_cast<unsigned char>(name[1]));
}

bool is_letter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
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

struct AtomRecord {
  Point position;
  double occupancy;
  AtomicDisplacementParameters displacement;
};

}  // namespace

void resolve_free_variable(double& x, std::vector<double> const& free_variables);

namespace {

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

ResFile::ResFile()
    : cell_(make_handle<Cell>()),
      molecules_(make_handle<std::vector<THandle<Molecule>>>()),
      asymmetric_unit_(make_handle<std::vector<THandle<Atom>>>()) {}

ResFile::ResFile(std::string const& file_name) : ResFile() {
  MoleculeFile::read(file_name);
}

void ResFile::clear() {
  molecules_ = make_handle<std::vector<THandle<Molecule>>>();
  asymmetric_unit_ = make_handle<std::vector<THandle<Atom>>>();
  cell_ = make_handle<Cell>();
  details_ = StructureDetails();
  molecules_read_ = false;
}

void ResFile::read(std::istream& is) {
  clear();
  bool const standard = read_options().standard();
  UncertainValue parameters[6];
  int lattice = 1;
  bool cell_seen = false;
  bool lattice_seen = false;
  auto operators = make_handle<std::vector<CrystalSymmetryOperator>>(1);
  std::vector<Element> elements;
  std::vector<double> free_variables;
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  std::vector<AtomRecord> records;
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

  std::string line;
  std::string continuation;
  std::vector<std::string> fields;
  std::vector<std::string> more;
  while (is.good()) {
    kora::getline(is, line);
    if (is.eof() && line.empty()) break;
    if (std::size_t const bang = line.find('!'); bang != std::string::npos) line.erase(bang);
    if (line.size() <= 2) continue;
    line = toupper(line);
    std::string_view const keyword = std::string_view(line).substr(0, 4);
    if (keyword.substr(0, 3) == "END") {
      if (!standard) break;
      model_done = true;
      continue;
    }
    if (keyword.substr(0, 3) == "REM") continue;
    if (line.size() <= 3 || !is_letter(line[0])) continue;
    std::string_view const text = std::string_view(line).substr(4);

    if (standard && (model_done || is_peak_name(keyword))) {
      split(line, fields, " \t");
      add_peak(fields, details_.density_peaks);
      continue;
    }
    if (keyword == "HKLF") {
      model_done = standard;
      continue;
    }
    if (keyword == "L.S." || keyword == "TITL") continue;
    if (keyword == "CELL") {
      if (cell_seen) fail("CELL keyword occurred more than once.");
      split(text, fields, " \t");
      // The wavelength and six parameters; a shorter line is ignored.
      if (fields.size() >= 7) {
        for (int i = 0; i < 6; ++i)
          parameters[i] = UncertainValue::parse(fields[std::size_t(i) + 1]);
        cell_ = make_handle<Cell>(parameters[0], parameters[1], parameters[2], parameters[3],
                                  parameters[4], parameters[5], Spacegroup());
      }
      cell_seen = true;
      continue;
    }
    if (keyword == "ZERR") {
      split(text, fields, " \t");
      if (fields.size() >= 7) {
        for (int i = 0; i < 6; ++i) {
          parameters[i] = set_uncertainty(parameters[i].value(),
                                          Uncertainty::parse(fields[std::size_t(i) + 1]));
        }
      }
      continue;
    }
    if (keyword == "LATT") {
      if (lattice_seen) fail("LATT keyword occurred more than once.");
      bool ok = false;
      int const n = string_to_int(text, ok);
      if (ok && n != 0 && n >= -7 && n <= 7) {
        lattice = n;
        lattice_seen = true;
      }
      continue;
    }
    if (keyword == "SYMM") {
      operators->push_back(CrystalSymmetryTransformation(std::string(text)));
      continue;
    }
    if (keyword == "SFAC") {
      split(strip(text, " \t"), fields, " \t");
      bool numeric = false;
      if (fields.size() >= 2) string_to_double(fields[1], numeric);
      if (!numeric) {
        for (std::string const& symbol : fields)
          elements.push_back(element_of(symbol));
      }
      continue;
    }
    if (keyword == "FVAR") {
      split(text, fields, " \t");
      for (std::string const& f : fields)
        free_variables.push_back(string_to_double(f, nullptr));
      continue;
    }
    if (keyword == "PART") {
      // PART n [sof]: the disorder part of the atoms that follow (0 the common part); in
      // standard reading, sof is the occupancy code of the part's atoms.
      split(text, fields, " \t");
      bool ok = false;
      int const n = fields.empty() ? 0 : string_to_int(fields[0], ok);
      part = ok ? n : 0;
      bool sof_ok = false;
      double const sof = fields.size() > 1 ? string_to_double(fields[1], sof_ok) : 0.0;
      part_occupancy = standard && sof_ok && part != 0 ? std::optional<double>(sof) : std::nullopt;
      continue;
    }
    if (keyword == "AFIX") {
      split(text, fields, " \t");
      bool ok = false;
      int const n = fields.empty() ? 0 : string_to_int(fields[0], ok);
      afix = ok ? n : 0;
      continue;
    }
    if (keyword == "RESI") {
      // RESI class number, in either order; RESI alone or RESI 0 returns to no residue.
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
      continue;
    }
    if (std::find(std::begin(ignored_instructions), std::end(ignored_instructions), keyword) !=
        std::end(ignored_instructions)) {
      continue;
    }

    // An atom line: name, scattering number, x, y, z, [occupancy, [U or U11 U22 =...]].
    split(line, fields, " ");
    if (fields.size() < 5) continue;
    if (fields[1].find('.') != std::string::npos) continue;
    bool ok = false;
    int const number = string_to_int(fields[1], ok);
    if (!ok) continue;
    Element element;
    if (number >= 1 && static_cast<std::size_t>(number - 1) < elements.size()) {
      element = elements[static_cast<std::size_t>(number - 1)];
    } else if (is_letter(line[1])) {
      if (is_letter(line[2])) continue;  // three letters: an instruction this reader ignores
      element = element_of(line.substr(0, 2));
    } else {
      element = element_of(line[0] == 'Q' ? std::string("C") : line.substr(0, 1));
    }
    bool okx = false, oky = false, okz = false;
    double x = string_to_double(fields[2], okx);
    double y = string_to_double(fields[3], oky);
    double z = string_to_double(fields[4], okz);
    if (!okx || !oky || !okz) continue;
    if (!cell_seen) fail("Atom line found before CELL keyword.");
    double occupancy = 1.0;
    if (fields.size() > 5) {
      bool okocc = false;
      occupancy = string_to_double(fields[5], okocc);
      if (!okocc) occupancy = 1.0;
    }
    if (part_occupancy) occupancy = *part_occupancy;
    double u = 0.05;
    if (fields.size() >= 7 && fields.back().back() == '=') {
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
    bool const anisotropic = fields.size() > 11;
    double uij[6] = {0, 0, 0, 0, 0, 0};  // file order U11 U22 U33 U23 U13 U12
    bool riding = false;
    if (anisotropic) {
      for (int i = 0; i < 6; ++i)
        uij[i] = string_to_double(fields[std::size_t(i) + 6], nullptr);
    } else if (fields.size() >= 7) {
      u = string_to_double(fields[6], nullptr);
    }
    double const written_occupancy = occupancy;
    double const written_u = anisotropic ? 0.0 : u;
    if (!anisotropic && u < 0.0) {
      u = previous_u_known ? std::fabs(u) * previous_u : 0.05;
      riding = true;
    }
    for (double* value : {&x, &y, &z, &occupancy})
      resolve_free_variable(*value, free_variables);
    AtomicDisplacementParameters displacement;
    if (anisotropic) {
      for (double& value : uij)
        resolve_free_variable(value, free_variables);
      displacement = AtomicDisplacementParameters(uij[0], uij[1], uij[2], uij[5], uij[4], uij[3],
                                                  AtomicDisplacementParameters::anisotropic);
    } else {
      resolve_free_variable(u, free_variables);
      displacement = AtomicDisplacementParameters(UncertainValue(u),
                                                  AtomicDisplacementParameters::isotropic, *cell_);
    }
    if (!riding) {
      previous_u = anisotropic ? displacement.u_equivalent(*cell_) : u;
      previous_u_known = true;
    }
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
    details.file_position[0] = x;
    details.file_position[1] = y;
    details.file_position[2] = z;
    atoms->push_back(THandle<Atom>(atom));
    records.push_back({Point(x, y, z), occupancy, displacement});
  }

  // The space group: centring translations, then the inversion, then duplicates removed.
  if (!cell_seen) {
    if (!atoms->empty()) fail("No CELL keyword found.");
    operators->clear();
  } else {
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
  auto kept = make_handle<std::vector<CrystalSymmetryOperator>>();
  for (std::size_t i = 0; i < operators->size(); ++i) {
    bool later_equal = false;
    for (std::size_t j = i + 1; j < operators->size() && !later_equal; ++j) {
      later_equal = equals((*operators)[i], (*operators)[j], 1e-7);
    }
    if (!later_equal) kept->push_back((*operators)[i]);
  }
  Spacegroup const spacegroup(kept, 0, "");
  *cell_ = Cell(parameters[0], parameters[1], parameters[2], parameters[3], parameters[4],
                parameters[5], spacegroup);
  if (!cell_->valid()) fail("No unit cell found.");

  for (std::size_t i = 0; i < atoms->size(); ++i) {
    AtomRecord const& r = records[i];
    double const occupancy = std::min(
        1.0, r.occupancy *
                 cell_->site_order(r.position, standard ? res_special_position_tolerance : 1e-7));
    (*atoms)[i]->set_site(
        make_handle<Site>(r.position, cell_->orthogonal(r.position), UncertainValue(occupancy),
                          make_handle<Array<Uncertainty, 3>>(),
                          make_handle<AtomicDisplacementParameters>(r.displacement)));
  }
  asymmetric_unit_ = make_handle<std::vector<THandle<Atom>>>(*atoms);
  molecules_read_ = true;
  details_.source_format = "res";
  details_.has_cell = true;
  details_.free_variables = free_variables;
  BondDetector detector(BondDetector::crystal, BondDetector::prune_hydrogens,
                        BondDistanceLimit(0.55, false));
  detector.set_separate_parts(standard);
  molecules_ = detector.molecules(*atoms, *cell_);
}

}  // namespace kora

namespace kora {

// Model conversion

THandle<Cell> ResFile::cell() const {
  return make_handle<Cell>(*cell_);
}

THandle<Crystal> ResFile::crystal() const {
  return make_handle<Crystal>(*cell_, molecules_);
}

THandle<CrystalMaker> ResFile::crystal_maker() const {
  auto maker = make_handle<CrystalMaker>(*cell_, molecules_, THandle<MoleculeList>(),
                                         THandle<MoleculeList>());
  maker->mutable_details() = details_;
  return maker;
}

THandle<CrystalStructureDatabaseEntry> ResFile::database_entry() const {
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<CrystalStructureImmediateDatabaseEntry>(identifier_, crystal_maker()));
}

THandle<Molecule> ResFile::molecule() const {
  std::vector<THandle<Molecule>> const& list = *molecules_;
  if (list.empty()) return THandle<Molecule>(make_handle<Molecule3d>());
  auto const placed = [](THandle<Molecule> const& m) {
    MoleculeSubset subset(m);
    subset.select_3d();
    return subset.create_molecule();
  };
  THandle<Molecule> result = placed(list[0]);
  for (std::size_t i = 1; i < list.size(); ++i)
    result->add(*placed(list[i]));
  return result;
}

void ResFile::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  molecules_read_ = false;
  molecules_->push_back(THandle<Molecule>(make_handle<Molecule3d>(molecule)));
}

template <class Structure>
void ResFile::add_structure_(Structure const& structure, Cell const& cell,
                             DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  molecules_read_ = false;
  if (!(cell == *cell_)) {
    clear();
    cell_ = make_handle<Cell>(cell);
  }
  for (int i = 0; i < structure.nmolecules(); ++i)
    molecules_->push_back(structure.molecule(i));
}

void ResFile::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  add_structure_(maker, maker.cell(), identifier);
  details_ = maker.details();
}

void ResFile::add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) {
  add_structure_(crystal, crystal.cell(), identifier);
}

void ResFile::add(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  add(*maker, entry.identifier());
}

// Writing

namespace detail {

int res_lattice_of(Spacegroup::Centring centring) {
  switch (centring) {
    case Spacegroup::body_centred:
      return 2;
    case Spacegroup::rhombohedral:
      return 3;
    case Spacegroup::face_centred:
      return 4;
    case Spacegroup::a_centred:
      return 5;
    case Spacegroup::b_centred:
      return 6;
    case Spacegroup::c_centred:
      return 7;
    default:
      return 1;
  }
}

void append_res_number(std::string& out, double value) {
  char buffer[32];
  auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

std::vector<CrystalSymmetryOperator> res_symmetry_cards(Spacegroup const& group,
                                                        Spacegroup::Centring centring,
                                                        bool centric) {
  std::vector<Vector<double, 3>> const shifts =
      Spacegroup::standard_centring_vectors(centring, Spacegroup::include_origin);
  std::vector<CrystalSymmetryOperator> covered;
  auto const cover = [&](CrystalSymmetryOperator const& op) {
    for (Vector<double, 3> const& v : shifts) {
      covered.emplace_back(op.rotation(), op.translation() + v);
      if (centric) covered.emplace_back(-op.rotation(), op.translation() + v);
    }
  };
  cover(CrystalSymmetryOperator());
  std::vector<CrystalSymmetryOperator> cards;
  for (CrystalSymmetryOperator const& op : group.operators()) {
    bool const generated = std::any_of(covered.begin(), covered.end(),
                                       [&](auto const& c) { return equals(op, c, 1e-6); });
    if (generated) continue;
    cards.push_back(op);
    cover(op);
  }
  return cards;
}

std::optional<Cell> res_box_for(Cell const& cell, std::vector<THandle<Atom>> const& atoms) {
  if (!(cell == Cell())) return std::nullopt;
  Point low(0, 0, 0), high(0, 0, 0);
  bool any = false;
  for (THandle<Atom> const& atom : atoms) {
    if (!atom->has_site()) continue;
    Point const& p = atom->site()->orthogonal();
    for (std::size_t k = 0; k < 3; ++k) {
      low[k] = any ? std::min(low[k], p[k]) : p[k];
      high[k] = any ? std::max(high[k], p[k]) : p[k];
    }
    any = true;
  }
  Angle const right = Angle::from_degrees(90);
  return Cell(high[0] - low[0] + 10.0, high[1] - low[1] + 10.0, high[2] - low[2] + 10.0, right,
              right, right, Spacegroup());
}

Point WrittenImages::wrapped(Point p) {
  for (double& v : p) {
    v -= std::floor(v);
    if (v >= 1.0) v = 0.0;
  }
  return p;
}

WrittenImages::Key WrittenImages::key(Point const& w) {
  Key k{};
  for (std::size_t i = 0; i < 3; ++i)
    k[i] = std::min(grid - 1, static_cast<int>(w[i] * grid));
  return k;
}

void WrittenImages::add(Point const& p, int tag) {
  Point const w = wrapped(p);
  cells_.emplace(key(w), Image{w, tag});
}

bool WrittenImages::contains(Point const& p, int tag) const {
  Point const w = wrapped(p);
  auto const [kx, ky, kz] = key(w);
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy)
      for (int dz = -1; dz <= 1; ++dz) {
        auto const range = cells_.equal_range(
            {(kx + dx + grid) % grid, (ky + dy + grid) % grid, (kz + dz + grid) % grid});
        for (auto it = range.first; it != range.second; ++it) {
          if (it->second.tag != tag) continue;
          bool same = true;
          for (std::size_t i = 0; i < 3 && same; ++i) {
            double d = it->second.position[i] - w[i];
            d -= std::nearbyint(d);
            same = std::fabs(d) <= tolerance_[i];
          }
          if (same) return true;
        }
      }
  return false;
}

}  // namespace detail

namespace {

// The atom name as a reader will take it: one word that starts with a letter and cannot be
// mistaken for an instruction.
std::string atom_name(Atom const& atom, std::size_t index) {
  std::string name;
  for (char c : atom.label()) {
    if (c != ' ' && c != '\t' && c != '!' && c != '=') name += c;
  }
  std::string const symbol = atom.element().is_set() ? atom.element().symbol() : "X";
  if (name.empty()) name = symbol + int_to_string(static_cast<int>(index) + 1);
  std::string const head = toupper(std::string_view(name).substr(0, 4));
  bool const reserved =
      head.rfind("END", 0) == 0 || head.rfind("REM", 0) == 0 || is_instruction(head);
  if (!is_letter(name[0]) || reserved) name = symbol + name;
  return name;
}

}  // namespace

void ResFile::print(std::ostream& os) const {
  std::vector<THandle<Atom>> atoms;
  if (write_options().standard() && molecules_read_) {
    // The atoms as read, when nothing was added since: symmetry copies that completing the
    // molecules merged with other atoms are written too.
    atoms = *asymmetric_unit_;
  } else {
    for (THandle<Molecule> const& molecule : *molecules_)
      for (THandle<Atom> const& atom : molecule->atoms())
        atoms.push_back(atom);
  }
  if (write_options().standard()) {
    detail::print_res_standard(os, identifier_.str(), *cell_, atoms, details_, uncertainty_scale_);
    return;
  }
  std::optional<Cell> const box = detail::res_box_for(*cell_, atoms);
  Cell const& cell = box ? *box : *cell_;
  Spacegroup const& group = cell.spacegroup();
  std::string out = "TITL " + identifier_.str() + "\nCELL 0.71073";
  for (auto const* values : {&cell.lengths(), &cell.angles()}) {
    for (UncertainValue const& v : *values) {
      out += ' ';
      detail::append_res_number(out, v.value());
    }
  }
  out += "\nZERR " + int_to_string(group.order());
  for (auto const* values : {&cell.lengths(), &cell.angles()}) {
    for (UncertainValue const& v : *values)
      out += ' ' + v.uncertainty().to_string();
  }
  Spacegroup::Centring centring = group.centring();
  if (centring == Spacegroup::unknown_centring) centring = Spacegroup::primitive;
  bool const centric = group.inversion_at_origin();
  out += "\nLATT " +
         int_to_string(centric ? detail::res_lattice_of(centring)
                               : -detail::res_lattice_of(centring)) +
         "\n";

  // SYMM: the operators that the centring and the inversion do not generate from those
  // already listed (and the identity), as a reader expands them.
  for (CrystalSymmetryOperator const& op : detail::res_symmetry_cards(group, centring, centric))
    out += "SYMM " + op.wrapped().to_string() + "\n";

  // The asymmetric unit: atoms with positions, each unless an image of it is written.
  struct Written {
    THandle<Atom> atom;
    Point position;
  };
  std::vector<Written> written;
  detail::WrittenImages images({1e-3, 1e-3, 1e-3});  // fractional units
  for (THandle<Molecule> const& molecule : *molecules_) {
    for (THandle<Atom> const& atom : molecule->atoms()) {
      if (!atom->has_site()) continue;
      Point const p =
          box ? cell.fractional(atom->site()->orthogonal()) : atom->site()->fractional();
      if (images.contains(p)) continue;
      for (CrystalSymmetryOperator const& op : group.operators())
        images.add(op(p));
      written.push_back({atom, p});
    }
  }

  // SFAC: carbon and hydrogen first, then the other elements in order of appearance; UNIT:
  // the number of atoms of each in the cell.
  std::vector<Element> elements;
  for (char const* first : {"C", "H"}) {
    Element const e(first);
    if (std::any_of(written.begin(), written.end(),
                    [&](Written const& w) { return w.atom->element() == e; })) {
      elements.push_back(e);
    }
  }
  for (Written const& w : written) {
    Element const e = w.atom->element();
    if (e.is_set() && std::find(elements.begin(), elements.end(), e) == elements.end()) {
      elements.push_back(e);
    }
  }
  if (elements.empty()) elements.push_back(Element("C"));
  std::vector<double> units(elements.size(), 0.0);
  auto const sfac_index = [&](Element const& e) {
    auto const it = std::find(elements.begin(), elements.end(), e);
    return it == elements.end() ? std::size_t(0) : static_cast<std::size_t>(it - elements.begin());
  };
  out += "SFAC";
  for (Element const& e : elements)
    out += ' ' + e.symbol();
  for (Written const& w : written) {
    units[sfac_index(w.atom->element())] +=
        w.atom->site()->occupancy().value() * cell.site_multiplicity(w.position, 1e-7);
  }
  out += "\nUNIT";
  for (double u : units) {
    out += ' ';
    detail::append_res_number(out, std::round(u * 100.0) / 100.0);
  }
  out += "\nFVAR 1.00000\n";

  for (std::size_t i = 0; i < written.size(); ++i) {
    Atom const& atom = *written[i].atom;
    Site const& site = *atom.site();
    Point const& p = written[i].position;
    out += atom_name(atom, i);
    out += ' ';
    detail::append_int(out, static_cast<long long>(sfac_index(atom.element()) + 1), 2);
    for (std::size_t k = 0; k < 3; ++k) {
      out += ' ';
      detail::append_fixed(out, p[k], 6, 10);
    }
    // The occupancy in the file is that of the site divided by its order, fixed (10 +).
    double const occupancy = site.occupancy().value() / cell.site_order(p, 1e-7);
    out += ' ';
    detail::append_fixed(out, 10.0 + occupancy, 5, 11);
    THandle<AtomicDisplacementParameters> const adp = site.atomic_displacement_parameters();
    if (adp && adp->type() == AtomicDisplacementParameters::anisotropic) {
      // Continued on a second line after U22.
      std::array<double, 6> const u = detail::res_file_order_u(*adp);
      for (int k = 0; k < 6; ++k) {
        if (k == 2) out += " =\n   ";
        out += ' ';
        detail::append_fixed(out, u[k], 5, 9);
      }
    } else {
      out += ' ';
      detail::append_fixed(out, adp ? adp->u_iso().value() : uncertainty_scale_, 5, 9);
    }
    out += '\n';
  }
  out += "HKLF 4\nEND\n";
  os.write(out.data(), static_cast<std::streamsize>(out.size()));
}

}  // namespace kora
