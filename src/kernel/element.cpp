#include "kora/kernel/element.hpp"

#include <array>

namespace kora {

namespace {

struct ElementData {
  char const* symbol;
  double covalent_radius;  // angstroms
};

// Symbols by atomic number, with single-bond covalent radii from B. Cordero, V. Gomez,
// A. E. Platero-Prats, M. Reves, J. Echeverria, E. Cremades, F. Barragan and S. Alvarez,
// "Covalent radii revisited", Dalton Trans. (2008) 2832-2838, doi:10.1039/b801115j.
// Carbon takes the sp3 value; Mn, Fe and Co their low-spin values. The paper stops at
// curium (96); heavier elements take 1.50, a radius typical of the late actinides, so that
// bonds to them can still be found.
constexpr std::array<ElementData, Element::max_atomic_number + 1> elements{{
    {"", 0.0},    {"H", 0.31},  {"He", 0.28}, {"Li", 1.28}, {"Be", 0.96}, {"B", 0.84},
    {"C", 0.76},  {"N", 0.71},  {"O", 0.66},  {"F", 0.57},  {"Ne", 0.58}, {"Na", 1.66},
    {"Mg", 1.41}, {"Al", 1.21}, {"Si", 1.11}, {"P", 1.07},  {"S", 1.05},  {"Cl", 1.02},
    {"Ar", 1.06}, {"K", 2.03},  {"Ca", 1.76}, {"Sc", 1.70}, {"Ti", 1.60}, {"V", 1.53},
    {"Cr", 1.39}, {"Mn", 1.39}, {"Fe", 1.32}, {"Co", 1.26}, {"Ni", 1.24}, {"Cu", 1.32},
    {"Zn", 1.22}, {"Ga", 1.22}, {"Ge", 1.20}, {"As", 1.19}, {"Se", 1.20}, {"Br", 1.20},
    {"Kr", 1.16}, {"Rb", 2.20}, {"Sr", 1.95}, {"Y", 1.90},  {"Zr", 1.75}, {"Nb", 1.64},
    {"Mo", 1.54}, {"Tc", 1.47}, {"Ru", 1.46}, {"Rh", 1.42}, {"Pd", 1.39}, {"Ag", 1.45},
    {"Cd", 1.44}, {"In", 1.42}, {"Sn", 1.39}, {"Sb", 1.39}, {"Te", 1.38}, {"I", 1.39},
    {"Xe", 1.40}, {"Cs", 2.44}, {"Ba", 2.15}, {"La", 2.07}, {"Ce", 2.04}, {"Pr", 2.03},
    {"Nd", 2.01}, {"Pm", 1.99}, {"Sm", 1.98}, {"Eu", 1.98}, {"Gd", 1.96}, {"Tb", 1.94},
    {"Dy", 1.92}, {"Ho", 1.92}, {"Er", 1.89}, {"Tm", 1.90}, {"Yb", 1.87}, {"Lu", 1.87},
    {"Hf", 1.75}, {"Ta", 1.70}, {"W", 1.62},  {"Re", 1.51}, {"Os", 1.44}, {"Ir", 1.41},
    {"Pt", 1.36}, {"Au", 1.36}, {"Hg", 1.32}, {"Tl", 1.45}, {"Pb", 1.46}, {"Bi", 1.48},
    {"Po", 1.40}, {"At", 1.50}, {"Rn", 1.50}, {"Fr", 2.60}, {"Ra", 2.21}, {"Ac", 2.15},
    {"Th", 2.06}, {"Pa", 2.00}, {"U", 1.96},  {"Np", 1.90}, {"Pu", 1.87}, {"Am", 1.80},
    {"Cm", 1.69}, {"Bk", 1.50}, {"Cf", 1.50}, {"Es", 1.50}, {"Fm", 1.50}, {"Md", 1.50},
    {"No", 1.50}, {"Lr", 1.50}, {"Rf", 1.50}, {"Db", 1.50}, {"Sg", 1.50}, {"Bh", 1.50},
    {"Hs", 1.50}, {"Mt", 1.50}, {"Ds", 1.50}, {"Rg", 1.50}, {"Cn", 1.50}, {"Nh", 1.50},
    {"Fl", 1.50}, {"Mc", 1.50}, {"Lv", 1.50}, {"Ts", 1.50}, {"Og", 1.50},
}};

// Symbol lookup without hashing: a symbol is an upper-case letter, optionally followed by a
// lower-case one, so a 26 x 27 table (second slot 0 for one-letter symbols) holds every code.
struct SymbolTable {
  std::array<std::array<unsigned char, 27>, 26> codes{};

  constexpr SymbolTable() {
    for (int z = 1; z <= Element::max_atomic_number; ++z) {
      char const* s = elements[z].symbol;
      codes[s[0] - 'A'][s[1] ? s[1] - 'a' + 1 : 0] = static_cast<unsigned char>(z);
    }
    codes['D' - 'A'][0] = Element::deuterium_code;
  }
};

constexpr SymbolTable symbol_table;

std::string const& symbol_string(int code) {
  static std::array<std::string, Element::deuterium_code + 1> const strings = [] {
    std::array<std::string, Element::deuterium_code + 1> s;
    for (int z = 0; z <= Element::max_atomic_number; ++z)
      s[z] = std::string(elements[z].symbol);
    s[Element::deuterium_code] = std::string("D");
    return s;
  }();
  return strings[code];
}

}  // namespace

int Element::atomic_symbol_to_kora_code(std::string_view symbol) noexcept {
  if (symbol.empty() || symbol.size() > 2) return unset_code;
  char const first = symbol[0];
  if (first < 'A' || first > 'Z') return unset_code;
  int second = 0;
  if (symbol.size() == 2) {
    if (symbol[1] < 'a' || symbol[1] > 'z') return unset_code;
    second = symbol[1] - 'a' + 1;
  }
  return symbol_table.codes[first - 'A'][second];
}

int Element::atomic_number_to_kora_code(int atomic_number) noexcept {
  return (atomic_number >= 1 && atomic_number <= max_atomic_number) ? atomic_number : unset_code;
}

Element::Element(std::string_view symbol) noexcept : code_(atomic_symbol_to_kora_code(symbol)) {}
Element::Element(std::string const& symbol) noexcept : Element(std::string_view(symbol)) {}
Element::Element(char const* symbol) noexcept
    : Element(symbol ? std::string_view(symbol) : std::string_view()) {}
Element::Element(int atomic_number) noexcept : code_(atomic_number_to_kora_code(atomic_number)) {}

Element Element::from_kora_code(int code) noexcept {
  Element e;
  if ((code >= 1 && code <= max_atomic_number) || code == deuterium_code) e.code_ = code;
  return e;
}

std::string const& Element::symbol() const noexcept {
  return symbol_string(code_);
}

int Element::atomic_number() const noexcept {
  return code_ == deuterium_code ? 1 : code_;
}

double Element::covalent_radius() const noexcept {
  return elements[atomic_number()].covalent_radius;
}

}  // namespace kora
