#include "pdb/pdb_columns.hpp"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "kernel/number_parsing.hpp"
#include "kora/kernel/element.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora::detail {

namespace {

// White space of the C locale, which strtol and strtod skip.
bool is_c_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_blank_or_tab(char c) {
  return c == ' ' || c == '\t';
}

// The text after leading white space and a '+' sign (which from_chars does not take); a
// second sign after '+' leaves nothing to convert.
std::string_view number_start(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && is_c_space(text[i]))
    ++i;
  if (i < text.size() && text[i] == '+') {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) return {};
  }
  return text.substr(i);
}

// A text field: empty when it is all blanks, otherwise its first run of characters for
// which `stop` is false.
template <class Stop>
std::string_view first_run(std::string_view field, Stop stop) {
  std::size_t begin = 0;
  while (begin < field.size() && stop(field[begin]))
    ++begin;
  std::size_t end = begin;
  while (end < field.size() && !stop(field[end]))
    ++end;
  return field.substr(begin, end - begin);
}

bool is_symbol(std::string const& symbol) {
  return Element::atomic_symbol_to_kora_code(symbol) != 0;
}

}  // namespace

long leading_integer(std::string_view text) noexcept {
  std::string_view const s = number_start(text);
  long value = 0;
  auto const [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  return ec == std::errc() ? value : 0;
}

double leading_real(std::string_view text) noexcept {
  std::string_view const s = number_start(text);
  double value = 0.0;
  auto const [ptr, ec] = from_chars_double(s.data(), s.data() + s.size(), value);
  return ec == std::errc() ? value : 0.0;
}

std::string_view first_symbol_run(std::string_view text) noexcept {
  return first_run(text, [](char c) { return is_digit(c) || is_blank_or_tab(c); });
}

PdbAtomRecord parse_atom_record(std::string_view line) noexcept {
  PdbAtomRecord r;
  std::size_t const n = line.size();
  r.serial = static_cast<int>(leading_integer(column(line, 6, 5)));
  if (n > 15) r.name = first_run(line.substr(12, 4), is_blank_or_tab);
  if (n > 16 && line[16] != ' ') r.alternate_location = line.substr(16, 1);
  if (n > 19) r.residue_name = first_run(line.substr(17, 3), [](char c) { return c == ' '; });
  if (n > 21 && line[21] != ' ') r.chain = line.substr(21, 1);
  if (n > 25) r.residue_number = static_cast<int>(leading_integer(line.substr(22, 4)));
  if (n > 26 && line[26] != ' ') r.insertion_code = line.substr(26, 1);
  if (n > 37) r.x = leading_real(line.substr(30, 8));
  if (n > 45) r.y = leading_real(line.substr(38, 8));
  if (n > 53) r.z = leading_real(line.substr(46, 8));
  if (n > 59) {
    r.occupancy = leading_real(line.substr(54, 6));
    if (r.occupancy > 1.0) r.occupancy = 1.0;
  }
  if (n > 65) r.temperature_factor = leading_real(line.substr(60, 6));
  if (n > 75) r.segment = first_run(line.substr(72, 4), [](char c) { return c == ' '; });
  if (n > 77) r.element = first_symbol_run(line.substr(76, 2));
  if (n > 79) {
    r.charge = static_cast<int>(leading_integer(line.substr(78, 1)));
    if (line[79] == '-') r.charge = -r.charge;
  }
  return r;
}

std::string pdb_element_symbol(std::string_view element, std::string_view atom_name, bool hetatm) {
  // The symbol the atom name suggests: its first two characters less digits and blanks.
  auto const from_name = [&atom_name] {
    return std::string(first_symbol_run(trim_view(atom_name, " \t").substr(0, 2)));
  };
  std::string symbol(element);
  if (symbol.empty()) symbol = from_name();
  if (symbol.size() == 2 && hetatm) lower_element_case(symbol);
  if (is_symbol(symbol)) return symbol;
  symbol.resize(std::min<std::size_t>(symbol.size(), 1));
  if (is_symbol(symbol)) return symbol;
  symbol = from_name();
  if (symbol.size() == 2) lower_element_case(symbol);
  return is_symbol(symbol) ? symbol : std::string();
}

namespace {

bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char upper(char c) {
  return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

char lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// The symbol of one or two letters in element case, if it names an element; else "".
std::string element_case_symbol(char first, char second = '\0') {
  std::string symbol(1, upper(first));
  if (second != '\0') symbol += lower(second);
  return is_symbol(symbol) ? symbol : std::string();
}

std::string symbol_from_name_alignment(std::string_view name) {
  if (name.size() < 2) return {};
  char const first = name[0];
  char const second = name[1];
  if (first == ' ' || is_digit(first)) return is_letter(second) ? element_case_symbol(second) : "";
  if (!is_letter(first)) return {};
  bool const four_characters = name.size() == 4 && name[3] != ' ';
  if (four_characters && upper(first) == 'H') return "H";
  if (is_letter(second)) {
    if (std::string symbol = element_case_symbol(first, second); !symbol.empty()) return symbol;
  }
  return element_case_symbol(first);
}

int sign_of(char c) {
  return c == '+' ? 1 : c == '-' ? -1 : 0;
}

}  // namespace

int pdb_standard_charge(std::string_view line) noexcept {
  std::string_view field = column(line, 78, 2);
  while (!field.empty() && (field.back() == ' ' || field.back() == '\r'))
    field.remove_suffix(1);
  while (!field.empty() && field.front() == ' ')
    field.remove_prefix(1);
  if (field.size() == 1) return sign_of(field[0]);
  if (field.size() != 2) return 0;
  if (is_digit(field[0]) && sign_of(field[1]) != 0) return sign_of(field[1]) * (field[0] - '0');
  if (is_digit(field[1]) && sign_of(field[0]) != 0) return sign_of(field[0]) * (field[1] - '0');
  return 0;
}

std::string pdb_standard_element_symbol(std::string_view line, PdbAtomRecord const& record,
                                        bool hetatm) {
  std::string_view const columns = trim_view(column(line, 76, 2), " \t");
  if (!columns.empty() && is_letter(columns[0])) {
    bool const two = columns.size() == 2 && is_letter(columns[1]);
    if (std::string symbol = element_case_symbol(columns[0], two ? columns[1] : '\0');
        !symbol.empty()) {
      return symbol;
    }
  }
  if (std::string symbol = symbol_from_name_alignment(column(line, 12, 4)); !symbol.empty()) {
    return symbol;
  }
  return pdb_element_symbol(record.element, record.name, hetatm);
}

}  // namespace kora::detail
