#include "kora/kernel/spacegroup.hpp"

#include <gemmi/symmetry.hpp>

#include "kora/kernel/string_functions.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <string_view>

namespace kora {

namespace {

// An operator as integers: the nine rotation entries and the translation in 24ths of a
// cell, brought into [0, 24). Equal keys mean equal operators modulo lattice translations.
using OpKey = std::array<int, 12>;
constexpr int den = 24;

std::optional<OpKey> key_of(CrystalSymmetryOperator const& op) {
  OpKey key{};
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c)
      key[r * 3 + c] = op.rotation()(r, c);
    double const t = op.translation()[r] * den;
    double const rounded = std::nearbyint(t);
    if (!std::isfinite(t) || std::fabs(t - rounded) > 1e-3 || std::fabs(rounded) > 1e6) {
      return std::nullopt;
    }
    key[9 + r] = ((static_cast<int>(rounded) % den) + den) % den;
  }
  return key;
}

// Sorted, duplicate-free keys of a list; nullopt when an operator has a translation that
// is not a multiple of 1/24.
std::optional<std::vector<OpKey>> keys_of(std::vector<CrystalSymmetryOperator> const& ops) {
  std::vector<OpKey> keys;
  keys.reserve(ops.size());
  for (CrystalSymmetryOperator const& op : ops) {
    std::optional<OpKey> key = key_of(op);
    if (!key) return std::nullopt;
    keys.push_back(*key);
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

Spacegroup::System system_of(int number) {
  if (number < 1) return Spacegroup::unknown_system;
  if (number <= 2) return Spacegroup::triclinic;
  if (number <= 15) return Spacegroup::monoclinic;
  if (number <= 74) return Spacegroup::orthorhombic;
  if (number <= 142) return Spacegroup::tetragonal;
  if (number <= 167) return Spacegroup::trigonal;
  if (number <= 194) return Spacegroup::hexagonal;
  if (number <= 230) return Spacegroup::cubic;
  return Spacegroup::unknown_system;
}

bool is_lower(char c) {
  return c >= 'a' && c <= 'z';
}

// The compact short symbol of a tabulated setting: "P 1 21/c 1" -> "P21/c",
// "F m -3 m" -> "Fm3m" (cubic groups keep their classic spelling), "R 3:R" -> "R3r".
std::string compact_symbol(gemmi::SpaceGroup const& sg) {
  std::string s = sg.hm;
  std::size_t const len = s.size();
  if (len > 6 && s[2] == '1' && s[len - 2] == ' ' && s[len - 1] == '1') {
    s = s[0] + s.substr(4, len - 4 - 2);
  }
  std::erase(s, ' ');
  for (std::size_t i = 1; i + 1 < s.size(); ++i) {
    if (s[i] == '-' && s[i + 1] == '3' && is_lower(s[i - 1])) s.erase(i, 1);
  }
  if (sg.ext == 'R') s += 'r';
  return s;
}

std::vector<CrystalSymmetryOperator> operators_of(gemmi::GroupOps const& group) {
  std::vector<CrystalSymmetryOperator> ops;
  ops.reserve(static_cast<std::size_t>(group.order()));
  for (gemmi::Op::Tran const& centring : group.cen_ops) {
    for (gemmi::Op const& op : group.sym_ops) {
      Matrix<int, 3, 3> rotation;
      Vector<double, 3> translation;
      for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 3; ++c)
          rotation(r, c) = op.rot[r][c] / gemmi::Op::DEN;
        int const t =
            ((op.tran[r] + centring[r]) % gemmi::Op::DEN + gemmi::Op::DEN) % gemmi::Op::DEN;
        translation[r] = static_cast<double>(t) / gemmi::Op::DEN;
      }
      ops.emplace_back(rotation, translation);
    }
  }
  auto const identity = std::find(ops.begin(), ops.end(), CrystalSymmetryOperator());
  if (identity != ops.end()) std::rotate(ops.begin(), identity, std::next(identity));
  return ops;
}

// The doubled tetragonal cells a' = a - b, b' = a + b, c' = c of each tetragonal group:
// C-centred from a primitive cell, F-centred from a body-centred one. Tables of settings
// list them beside the standard symbols.
struct DoubledCell {
  int number;
  char const* symbol;
};
constexpr DoubledCell doubled_cells[] = {
    {75, "C4"},       {76, "C41"},      {77, "C42"},      {78, "C43"},      {79, "F4"},
    {80, "F41"},      {81, "C-4"},      {82, "F-4"},      {83, "C4/m"},     {84, "C42/m"},
    {85, "C4/a"},     {86, "C42/a"},    {87, "F4/m"},     {88, "F41/d"},    {89, "C422"},
    {90, "C4221"},    {91, "C4122"},    {92, "C41221"},   {93, "C4222"},    {94, "C42221"},
    {95, "C4322"},    {96, "C43221"},   {97, "F422"},     {98, "F4122"},    {99, "C4mm"},
    {100, "C4mb"},    {101, "C42mc"},   {102, "C42mn"},   {103, "C4cc"},    {104, "C4cn"},
    {105, "C42cm"},   {106, "C42cb"},   {107, "F4mm"},    {108, "F4mc"},    {109, "F41dm"},
    {110, "F41dc"},   {111, "C-4m2"},   {112, "C-4c2"},   {113, "C-4m21"},  {114, "C-4c21"},
    {115, "C-42m"},   {116, "C-42c"},   {117, "C-42b"},   {118, "C-42b"},   {119, "F-42m"},
    {120, "F-42c"},   {121, "F-4m2"},   {122, "F-4d2"},   {123, "C4/mmm"},  {124, "C4/mcc"},
    {125, "C4/amb"},  {126, "C4/acn"},  {127, "C4/mmb"},  {128, "C4/mcn"},  {129, "C4/amm"},
    {130, "C4/acc"},  {131, "C42/mcm"}, {132, "C42/mmc"}, {133, "C42/acb"}, {134, "C42/amn"},
    {135, "C42/mbc"}, {136, "C42/mmn"}, {137, "C42/acm"}, {138, "C42/amc"}, {139, "F4/mmm"},
    {140, "F4/mmc"},  {141, "F41/ddm"}, {142, "F41/ddc"},
};

// The operators of a tetragonal group expressed in its doubled cell. Fractional
// coordinates change as x' = Q x with Q the inverse of the basis matrix; an operator
// (R, t) becomes (Q R Q^-1, Q t), and the old lattice points give the new centrings.
std::vector<CrystalSymmetryOperator> doubled_cell_operators(
    std::vector<CrystalSymmetryOperator> const& standard) {
  Matrix<double, 3, 3> const q{0.5, -0.5, 0, 0.5, 0.5, 0, 0, 0, 1};
  Matrix<double, 3, 3> const q_inverse{1, 1, 0, -1, 1, 0, 0, 0, 1};
  std::vector<Vector<double, 3>> lattice;  // old lattice translations in new coordinates
  std::vector<CrystalSymmetryOperator> ops;
  for (CrystalSymmetryOperator const& op : standard) {
    if (op.rotation() == Matrix<int, 3, 3>::identity()) {
      for (Vector<double, 3> const& cell : {Vector<double, 3>{0, 0, 0}, {1, 0, 0}}) {
        lattice.push_back(q * (op.translation() + cell));
      }
    }
  }
  std::vector<OpKey> seen;
  for (Vector<double, 3> const& shift : lattice) {
    for (CrystalSymmetryOperator const& op : standard) {
      Matrix<double, 3, 3> rotation;
      for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
          rotation(r, c) = op.rotation()(r, c);
      Matrix<double, 3, 3> const rotated = q * rotation * q_inverse;
      Matrix<int, 3, 3> integral;
      for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
          integral(r, c) = static_cast<int>(std::nearbyint(rotated(r, c)));
      CrystalSymmetryOperator const mapped =
          CrystalSymmetryOperator(integral, q * op.translation() + shift).wrapped();
      std::optional<OpKey> const key = key_of(mapped);
      if (key && std::find(seen.begin(), seen.end(), *key) == seen.end()) {
        seen.push_back(*key);
        ops.push_back(mapped);
      }
    }
  }
  return ops;
}

// One tabulated setting.
struct Setting {
  std::string symbol;  // compact short symbol
  std::string full;    // the symbol that names the setting ("P 1 21/c 1", "I 41/a:2", "R 3:H")
  std::string lookup;  // the symbol as matched: first letter upper case, the rest lower
  int number = 0;
  gemmi::SpaceGroup const* table_entry = nullptr;  // null for the doubled cells
  std::vector<CrystalSymmetryOperator> operators;
  std::vector<OpKey> keys;
};

std::string lookup_form(std::string_view compact) {
  std::string s(compact);
  for (std::size_t i = 1; i < s.size(); ++i) {
    if (s[i] >= 'A' && s[i] <= 'Z') s[i] = static_cast<char>(s[i] - 'A' + 'a');
  }
  return s;
}

// Every setting of the tables, built once on first use.
std::vector<Setting> const& settings() {
  static std::vector<Setting> const all = [] {
    std::vector<Setting> list;
    for (gemmi::SpaceGroup const& sg : gemmi::spacegroup_tables::main) {
      Setting s;
      s.symbol = compact_symbol(sg);
      s.full = sg.xhm();
      s.lookup = lookup_form(s.symbol);
      s.number = sg.number;
      s.table_entry = &sg;
      s.operators = operators_of(sg.operations());
      list.push_back(std::move(s));
    }
    for (DoubledCell const& cell : doubled_cells) {
      auto const standard = std::find_if(list.begin(), list.end(), [&](Setting const& s) {
        return s.number == cell.number && s.table_entry;
      });
      Setting s;
      s.symbol = cell.symbol;
      s.full = cell.symbol;
      s.lookup = lookup_form(s.symbol);
      s.number = cell.number;
      s.operators = doubled_cell_operators(standard->operators);
      list.push_back(std::move(s));
    }
    for (Setting& s : list)
      s.keys = *keys_of(s.operators);
    return list;
  }();
  return all;
}

// A full Hermann-Mauguin symbol, written with blanks, shortened to the short form:
// "P 21/b 21/c 21/a" -> "P b c a", "P 4/m 2/m 2/m" -> "P 4/m m m",
// "F 4/m -3 2/m" -> "F m -3 m", "P -3 2/m 1" -> "P -3 m 1". Short symbols and monoclinic
// full symbols ("P 1 21/c 1", which the tables know) come back unchanged.
std::string shortened_full_symbol(std::string_view symbol) {
  std::vector<std::string> tokens;
  split(symbol, tokens, " \t");
  if (tokens.size() < 3) return std::string(symbol);
  bool const cubic = tokens[2] == "-3" || tokens[2] == "3";
  int const slashes =
      static_cast<int>(std::count_if(tokens.begin() + 1, tokens.end(), [](std::string const& t) {
        return t.find('/') != std::string::npos;
      }));
  if (slashes == 0 || (!cubic && slashes < 2 && tokens[1] != "-3")) return std::string(symbol);
  std::string out = tokens[0];
  for (std::size_t i = 1; i < tokens.size(); ++i) {
    std::string token = tokens[i];
    std::size_t const slash = token.find('/');
    bool const principal_axis = !cubic && i == 1 && (token[0] == '4' || token[0] == '6');
    if (slash != std::string::npos && !principal_axis) token.erase(0, slash + 1);
    out += ' ';
    out += token;
  }
  return out;
}

// A symbol in any common spelling, rewritten into the form the tables are searched in:
// no blanks or parentheses, first letter upper case and the rest lower case, a bar before
// the 3 of cubic groups written in the old way ("Pm3m" -> "Pm-3m"), and the axes or origin
// choice after a colon ("R3r" -> "R3:R", "H3" -> "R3:H").
std::string normalised_symbol(std::string_view symbol) {
  std::string s;
  for (char c : shortened_full_symbol(symbol)) {
    if (c != ' ' && c != '\t' && c != '_' && c != '(' && c != ')') s += c;
  }
  std::string suffix;
  if (std::size_t const colon = s.find(':'); colon != std::string::npos) {
    suffix = s.substr(colon + 1);
    s.erase(colon);
    for (char& c : suffix) {
      if (is_lower(c)) c = static_cast<char>(c - 'a' + 'A');
    }
  }
  s = lookup_form(s);
  if (s.empty()) return s;
  if (s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
  if (s[0] == 'H' && suffix.empty()) {
    s[0] = 'R';
    suffix = "H";
  }
  if (s[0] == 'R' && suffix.empty() && s.size() > 2 && (s.back() == 'r' || s.back() == 'h')) {
    suffix = s.back() == 'r' ? "R" : "H";
    s.pop_back();
  }
  for (std::size_t i = 1; i < s.size(); ++i) {
    if (s[i] == '3' && is_lower(s[i - 1])) s.insert(i++, 1, '-');
  }
  return suffix.empty() ? s : s + ':' + suffix;
}

// The setting a symbol names; with a number from 1 to 230, a setting of that number is
// preferred among those that share the symbol.
Setting const* find_setting(std::string_view symbol, int number) {
  std::string const name = normalised_symbol(symbol);
  if (name.empty()) return nullptr;
  std::vector<Setting> const& all = settings();
  std::vector<Setting const*> candidates;
  if (gemmi::SpaceGroup const* sg = gemmi::find_spacegroup_by_name(name)) {
    candidates.push_back(&all[static_cast<std::size_t>(sg - gemmi::spacegroup_tables::main)]);
  }
  for (Setting const& s : all) {
    if (!s.table_entry && s.lookup == name) candidates.push_back(&s);
  }
  for (Setting const* s : candidates) {
    if (s->number == number) return s;
  }
  return candidates.empty() ? nullptr : candidates.front();
}

std::string without_blanks(std::string_view text) {
  std::string s;
  for (char c : text) {
    if (c != ' ' && c != '\t') s += c;
  }
  return s;
}

}  // namespace

Spacegroup::Spacegroup()
    : symbol_("P1"),
      setting_symbol_("P 1"),
      number_(1),
      system_(triclinic),
      operators_(1, CrystalSymmetryOperator()) {}

Spacegroup::Spacegroup(std::string const& symbol, int number, System system) {
  if (Setting const* s = find_setting(symbol, number)) {
    symbol_ = s->symbol;
    setting_symbol_ = s->full;
    number_ = s->number;
    operators_ = s->operators;
  } else if (number >= 1 && number <= 230) {
    gemmi::SpaceGroup const& sg = gemmi::get_spacegroup_reference_setting(number);
    symbol_ = without_blanks(symbol);
    setting_symbol_ = sg.xhm();
    number_ = number;
    operators_ =
        settings()[static_cast<std::size_t>(&sg - gemmi::spacegroup_tables::main)].operators;
  } else {
    symbol_ = without_blanks(symbol);
    number_ = 0;
    operators_.assign(1, CrystalSymmetryOperator());
  }
  system_ = system != unknown_system ? system : system_of(number_);
}

Spacegroup::Spacegroup(THandle<std::vector<CrystalSymmetryOperator>> const& operators, int number,
                       std::string const& name)
    : symbol_(name), number_(number) {
  if (operators && !operators->empty()) {
    operators_ = *operators;
  } else {
    operators_.assign(1, CrystalSymmetryOperator());
  }
  if (number_ == 0) {
    if (std::optional<std::vector<OpKey>> const keys = keys_of(operators_)) {
      for (Setting const& s : settings()) {
        if (s.keys == *keys) {
          symbol_ = s.symbol;
          setting_symbol_ = s.full;
          number_ = s.number;
          break;
        }
      }
    }
  }
  system_ = system_of(number_);
}

std::vector<std::string> Spacegroup::tabulated_settings() {
  // A few settings of the tables repeat another's operators under a second name, and one
  // has a symbol cut short that names nothing; each group of operators is listed once, under
  // the name that finds it.
  std::vector<std::string> symbols;
  std::vector<Setting const*> listed;
  for (Setting const& s : settings()) {
    if (find_setting(s.full, -1) != &s) continue;
    bool const repeat = std::any_of(listed.begin(), listed.end(),
                                    [&](Setting const* other) { return other->keys == s.keys; });
    if (repeat) continue;
    listed.push_back(&s);
    symbols.push_back(s.full);
  }
  return symbols;
}

Spacegroup::Centring Spacegroup::centring() const {
  std::vector<OpKey> translations;
  for (CrystalSymmetryOperator const& op : operators_) {
    if (op.rotation() != Matrix<int, 3, 3>::identity()) continue;
    std::optional<OpKey> const key = key_of(op);
    if (!key) return unknown_centring;
    translations.push_back(*key);
  }
  std::sort(translations.begin(), translations.end());
  translations.erase(std::unique(translations.begin(), translations.end()), translations.end());
  for (Centring c :
       {primitive, body_centred, a_centred, b_centred, c_centred, face_centred, rhombohedral}) {
    std::vector<OpKey> expected;
    for (Vector<double, 3> const& v : standard_centring_vectors(c, include_origin)) {
      expected.push_back(*key_of(CrystalSymmetryOperator(Matrix<int, 3, 3>::identity(), v)));
    }
    std::sort(expected.begin(), expected.end());
    if (expected == translations) return c;
  }
  return unknown_centring;
}

bool Spacegroup::inversion_at_origin() const {
  CrystalSymmetryOperator const inversion(-Matrix<int, 3, 3>::identity(), {});
  return std::any_of(operators_.begin(), operators_.end(), [&](CrystalSymmetryOperator const& op) {
    return CrystalSymmetryOperator::equals(op, inversion, 1e-6);
  });
}

std::vector<Vector<double, 3>> Spacegroup::standard_centring_vectors(
    Centring centring, IncludeOriginCriterion criterion) {
  constexpr double h = 0.5, t = 1.0 / 3.0, d = 2.0 / 3.0;
  std::vector<Vector<double, 3>> v;
  if (criterion == include_origin) v.push_back({0, 0, 0});
  switch (centring) {
    case body_centred:
      v.push_back({h, h, h});
      break;
    case a_centred:
      v.push_back({0, h, h});
      break;
    case b_centred:
      v.push_back({h, 0, h});
      break;
    case c_centred:
      v.push_back({h, h, 0});
      break;
    case face_centred:
      v.insert(v.end(), {{0, h, h}, {h, 0, h}, {h, h, 0}});
      break;
    case rhombohedral:
      v.insert(v.end(), {{d, t, t}, {t, d, d}});
      break;
    default:
      break;
  }
  return v;
}

bool operator==(Spacegroup const& a, Spacegroup const& b) {
  auto const contains_all = [](std::vector<CrystalSymmetryOperator> const& from,
                               std::vector<CrystalSymmetryOperator> const& in) {
    return std::all_of(from.begin(), from.end(), [&](CrystalSymmetryOperator const& op) {
      return std::any_of(in.begin(), in.end(), [&](CrystalSymmetryOperator const& other) {
        return CrystalSymmetryOperator::equals(op, other, 1e-6);
      });
    });
  };
  return contains_all(a.operators_, b.operators_) && contains_all(b.operators_, a.operators_);
}

}  // namespace kora
