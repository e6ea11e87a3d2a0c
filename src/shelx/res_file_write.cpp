// ResFile::print: classic RES writing (standard writing is in res_standard_writer.cpp), and
// the helpers both writers share: lattice numbers, SYMM cards, the P1 box of a structure
// without crystal data, and the index of the positions already written.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/kernel/symmetry.hpp"
#include "kora/shelx/res_file.hpp"
#include "shelx/res_instructions.hpp"
#include "shelx/res_writing.hpp"

namespace kora {

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
      head.rfind("END", 0) == 0 || head.rfind("REM", 0) == 0 || detail::is_res_instruction(head);
  if (!detail::is_res_letter(name[0]) || reserved) name = symbol + name;
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
