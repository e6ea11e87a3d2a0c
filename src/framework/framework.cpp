#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

// A read-only stream buffer over text already in memory.
class MemoryBuffer : public std::streambuf {
 public:
  MemoryBuffer(char* begin, char* end) { setg(begin, begin, end); }
};

}  // namespace

void MoleculeFile::read(std::string const& file_name) {
  std::ifstream in(file_name, std::ios::binary);
  if (!in) throw std::runtime_error("MoleculeFile::read: cannot open file " + file_name);
  read(static_cast<std::istream&>(in));
}

bool TextIdentifiedFileFormat::identify(std::string const& file_name) const {
  std::ifstream in(file_name, std::ios::binary);
  if (!in) return false;
  // Read no more than the file holds, up to the limit.
  std::size_t wanted = identify_byte_limit;
  in.seekg(0, std::ios::end);
  if (std::streamoff const end = in.tellg(); end >= 0) {
    wanted = std::min(wanted, static_cast<std::size_t>(end));
  }
  in.clear();
  in.seekg(0);
  std::vector<char> text(wanted);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  std::size_t size = static_cast<std::size_t>(in.gcount());
  if (size == identify_byte_limit && in.peek() != std::char_traits<char>::eof()) {
    // The file goes on: leave out the last line, which may be cut.
    while (size > 0 && text[size - 1] != '\n' && text[size - 1] != '\r')
      --size;
  }
  MemoryBuffer buffer(text.data(), text.data() + size);
  std::istream lines(&buffer);
  std::string line;
  for (unsigned int number = 1; number <= identify_line_limit && kora::getline(lines, line);
       ++number) {
    if (examine_line(line, number)) return true;
  }
  return false;
}

DatabaseEntryIdentifier FlatFileDatabaseReader::generate_identifier_from_index(int number) const {
  return DatabaseEntryIdentifier("ENTRY" + int_to_string(number));
}

}  // namespace kora
