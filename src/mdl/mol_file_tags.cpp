// SD data items: "> <name>" header lines, value lines and a blank line, up to "$$$$".

#include <istream>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/line_reading.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

MolFile::TagCollection::TagCollection() : items_(make_handle<Map>()) {}

std::string MolFile::TagCollection::parse_key_in(std::string const& name) const {
  if (detail::begins_with(name, ">")) return name;
  std::string_view const trimmed = trim_view(name, " \t");
  if (detail::begins_with(name, "<") || (name.size() > 2 && detail::begins_with(name, "DT"))) {
    return "> " + std::string(trimmed);
  }
  std::string key = "> <";
  for (char const c : trimmed)
    key += c == ' ' ? '.' : c;
  key += '>';
  return key;
}

std::string MolFile::TagCollection::parse_key_out(std::string const& key) const {
  return key;
}

THandle<MolFile::TagCollection::Values> MolFile::TagCollection::values(
    std::string const& name) const {
  auto const found = items_->find(parse_key_in(name));
  return found == items_->end() ? THandle<Values>() : found->second;
}

void MolFile::TagCollection::set(std::string const& name, THandle<Values> const& values) {
  (*items_)[parse_key_in(name)] = values;
}

void MolFile::TagCollection::read(std::istream& is) {
  read_(is, {});
}

void MolFile::TagCollection::read_(std::istream& is, std::string_view first_header, bool standard) {
  if (is.eof()) return;
  std::string header(first_header);
  auto values = make_handle<Values>();
  bool inside = !header.empty();
  auto const store = [&] {
    if (inside) {
      (*items_)[parse_key_in(header)] = values;
      values = make_handle<Values>();
      header.clear();
      inside = false;
    }
  };
  // Bytes read since the last line that belongs to the record: what goes back to the
  // stream when it ends before "$$$$".
  std::size_t unconsumed = 0;
  bool read_any = false;
  std::string line;
  std::size_t used = 0;
  while (!is.eof()) {
    detail::getline_counted(is, line, used);
    if (is.fail()) break;  // nothing was left to read
    read_any = true;
    unconsumed += used;
    if (line.empty()) {
      store();
      unconsumed = 0;
    } else if (detail::ends_record(line, standard)) {
      store();
      return;
    } else if (inside) {
      values->push_back(line);
      unconsumed = 0;
    } else if (std::string_view const text = trim_view(line, " \t");
               !text.empty() && text[0] == '>') {
      header.assign(text);
      inside = true;
    }
  }
  if (read_any && unconsumed > 0) {
    is.clear();
    is.seekg(-static_cast<std::streamoff>(unconsumed), std::ios::cur);
  }
}

void MolFile::TagCollection::print(std::ostream& os) const {
  std::string out;
  for (auto const& [key, values] : *items_) {
    out += parse_key_out(key);
    out += '\n';
    for (std::string const& value : *values) {
      out += trim_view(value, " \t\n\r");
      out += '\n';
    }
    out += '\n';
  }
  os << out;
}

}  // namespace kora
