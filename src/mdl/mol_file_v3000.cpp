// Reading the V3000 connection table: the CTAB block with its COUNTS line and ATOM and BOND
// blocks, up to "M  END", then the record's data items. Blocks that the model has no room
// for (SGROUP, COLLECTION, OBJ3D, RGROUP, TEMPLATE, ...) are skipped whole.

#include <algorithm>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kernel/handle_arena.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

namespace {

using detail::c_double;
using detail::c_int;

constexpr std::string_view v30_prefix = "M  V30 ";

// Splits a V3000 line into its fields: blank-separated words, where a double-quoted text
// ("" inside it stands for one quote) and a parenthesised list ("(3 1 2 5)") each count as
// one word even when they hold blanks.
class V30Fields {
 public:
  explicit V30Fields(std::string_view text) : text_(text) {}

  // The next field; empty at the end of the line.
  std::string_view next() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t'))
      ++at_;
    std::size_t const first = at_;
    int depth = 0;
    while (at_ < text_.size()) {
      char const c = text_[at_];
      // Digits, letters, signs and points, nearly all there is, lie above every character
      // that matters here (blanks, tabs, quotes and parentheses).
      if (c > ')') {
        ++at_;
        continue;
      }
      if (depth == 0 && (c == ' ' || c == '\t')) break;
      if (c == '"') {  // up to the closing quote, whatever is inside
        for (++at_; at_ < text_.size(); ++at_) {
          if (text_[at_] != '"') continue;
          if (at_ + 1 < text_.size() && text_[at_ + 1] == '"') {
            ++at_;
            continue;
          }
          break;
        }
      } else if (c == '(') {
        ++depth;
      } else if (c == ')' && depth > 0) {
        --depth;
      }
      if (at_ < text_.size()) ++at_;
    }
    return text_.substr(first, at_ - first);
  }

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

// The value of a "KEY=value" field, or nothing when the field has another key.
bool property_value(std::string_view field, std::string_view key, std::string_view& value) {
  if (field.size() <= key.size() || field.substr(0, key.size()) != key ||
      field[key.size()] != '=') {
    return false;
  }
  value = field.substr(key.size() + 1);
  return true;
}

// Atoms by the index field of their lines. Files number them 1, 2, 3, ... almost always,
// so the map is built only when a file does not.
class AtomNumbers {
 public:
  // False when the number was already given to another atom.
  bool add(int number) {
    int const position = count_++;
    if (in_order_ && number == position + 1) return true;
    if (in_order_) {
      in_order_ = false;
      for (int i = 0; i < position; ++i)
        positions_.emplace(i + 1, i);
    }
    return positions_.emplace(number, position).second;
  }

  // The 0-based position of the atom with this number; -1 when there is none.
  int position(int number) const {
    if (in_order_) return number >= 1 && number <= count_ ? number - 1 : -1;
    auto const found = positions_.find(number);
    return found == positions_.end() ? -1 : found->second;
  }

 private:
  int count_ = 0;
  bool in_order_ = true;
  std::unordered_map<int, int> positions_;
};

}  // namespace

void MolFile::read_V3000(std::istream& is) {
  auto const atoms = make_handle<std::vector<THandle<Atom>>>();
  std::vector<BondData> bonds;
  std::vector<Point> coordinates;
  detail::HandleArena<FileOrderedAtom3d> made;
  AtomNumbers numbers;

  enum class Block { none, atom, bond, skipped };
  Block block = Block::none;
  std::string skipped_name;  // the block being skipped, ended by "END <name>"
  int announced_atoms = 0;
  int announced_bonds = 0;
  int zero_z = 0;

  // One logical line: a line ending in "-" continues on the next "M  V30 " line.
  auto const handle = [&](std::string_view text) {
    V30Fields fields(text);
    std::string_view const word = fields.next();
    if (block == Block::skipped) {
      if (word == "END" && fields.next() == skipped_name) block = Block::none;
      return;
    }
    if (block == Block::atom || block == Block::bond) {
      bool const atom_block = block == Block::atom;
      if (word == "END" || word == "BEGIN") {
        if (word == "END" && fields.next() == (atom_block ? "ATOM" : "BOND")) {
          block = Block::none;
          return;
        }
        throw std::runtime_error(atom_block ? "Atom block incomplete - no END ATOM line"
                                            : "Bond block incomplete - no END BOND line");
      }
      if (word.empty()) return;
      int const number = c_int(word);
      if (atom_block) {
        std::string_view type = fields.next();
        if (type == "NOT") type = fields.next();
        std::string_view const x_text = fields.next();
        std::string_view const y_text = fields.next();
        std::string_view const z_text = fields.next();
        if (z_text.empty()) {
          throw std::runtime_error("Unreadable line in Atom block - too few fields");
        }
        // The atom-atom mapping number, then "KEY=value" properties; writers may leave
        // the mapping number out.
        int charge = 0;
        double mass = 0.0;
        int radical = 0;
        for (std::string_view field = fields.next(); !field.empty(); field = fields.next()) {
          std::string_view value;
          if (property_value(field, "CHG", value)) charge = c_int(value);
          if (property_value(field, "MASS", value)) mass = c_double(value);
          if (property_value(field, "RAD", value)) radical = c_int(value);
        }
        // An atom list ("[C,N,O]") is a query atom, as "L" is in V2000.
        std::string symbol(type.substr(0, 1) == "[" ? std::string_view("L") : type);
        if (symbol == "H" && mass == 2.0) symbol = "D";
        verify_symbol(symbol);
        if (!numbers.add(number)) {
          throw std::runtime_error("Atom index repeated in Atom block - incorrect lines in file");
        }
        double const z = c_double(z_text);
        if (detail::is_float_zero(z)) ++zero_z;
        int const n = static_cast<int>(atoms->size()) + 1;
        Element const element = read_options().standard() && symbol == "T"
                                    ? Element(1)
                                    : detail::element_of_symbol(symbol);
        auto const atom = made.make(n, element, symbol + int_to_string(number), THandle<Site>());
        atom->set_formal_charge(static_cast<std::int16_t>(charge));
        AtomDetails& details = *atom->mutable_details();
        // MASS= is the isotope's mass number; a deuterium or tritium symbol names its own.
        if (mass >= 1.0 && mass < 1000.0) {
          details.mass_number = static_cast<int>(mass + 0.5);
        } else {
          details.mass_number = detail::mass_number_of_atom_line(symbol, Element(), 0);
        }
        if (radical >= 0 && radical <= 3) details.radical = radical;
        if (!element.is_set()) details.element_symbol = symbol;
        atoms->push_back(THandle<Atom>(atom));
        coordinates.push_back(Point{c_double(x_text), c_double(y_text), z});
      } else {
        std::string_view const type = fields.next();
        std::string_view const first = fields.next();
        std::string_view const second = fields.next();
        if (second.empty())
          throw std::runtime_error("Unreadable line in Bond block - too few fields");
        int const a = numbers.position(c_int(first));
        int const b = numbers.position(c_int(second));
        if (a < 0 || b < 0) {
          throw std::runtime_error("Unable to create bonds - bond to an unknown atom index");
        }
        bonds.emplace_back(a, b, detail::bond_type_of_code(c_int(type)));
      }
      return;
    }
    if (word == "BEGIN") {
      std::string_view const name = fields.next();
      if (name == "ATOM") {
        block = Block::atom;
      } else if (name == "BOND") {
        block = Block::bond;
      } else if (name != "CTAB") {
        block = Block::skipped;
        skipped_name = name;
      }
    } else if (word == "COUNTS") {
      announced_atoms = c_int(fields.next());
      announced_bonds = c_int(fields.next());
    }
  };

  bool ended = false;
  bool cut_short = false;  // the text ended before "M  END" or "$$$$"
  std::string line;
  std::string logical;
  bool continued = false;
  while (!is.eof()) {
    kora::getline(is, line);
    if (detail::ends_record(line, read_options().standard()) ||
        detail::stream_exhausted(is, line)) {
      ended = true;
      cut_short = detail::stream_exhausted(is, line);
      break;
    }
    if (detail::begins_with(line, "M  END")) break;
    if (!detail::begins_with(line, "M  V30")) continue;
    std::string_view text = std::string_view(line).substr(std::min(line.size(), v30_prefix.size()));
    std::string_view const trimmed = trim_view(text, " \t");
    bool const continues = !trimmed.empty() && trimmed.back() == '-';
    if (continues) text = text.substr(0, static_cast<std::size_t>(&trimmed.back() - text.data()));
    if (continued) {
      logical.append(text);
    } else {
      logical.assign(text);
    }
    continued = continues;
    if (!continued) handle(logical);
  }
  // Standard reading takes a table cut short by the end of the text as far as it goes.
  if (!(cut_short && read_options().standard())) {
    if (block == Block::atom) throw std::runtime_error("Atom block incomplete - no END ATOM line");
    if (block == Block::bond) throw std::runtime_error("Bond block incomplete - no END BOND line");
    if (static_cast<int>(atoms->size()) < announced_atoms) {
      throw std::runtime_error(detail::short_atom_block_message);
    }
    if (static_cast<int>(bonds.size()) < announced_bonds) {
      throw std::runtime_error("Bond block incomplete - not enough bond lines");
    }
  }

  if (!ended) tags_->read_(is, {}, read_options().standard());
  bool const flat = zero_z == static_cast<int>(atoms->size());
  if (flat && dimensional_code_ != "3D" && dimensional_code_ != "3d") two_d_ = true;
  record_structure_details_(flat);
  try {
    molecules_ = create_molecules(*cell_, *atoms, bonds, coordinates, THandle<Transformation>());
  } catch (std::invalid_argument const&) {
    throw std::runtime_error(detail::bad_bonds_message);
  }
}

}  // namespace kora
