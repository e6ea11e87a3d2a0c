// libFuzzer harnesses: the bytes are a file of one format, read with its file object, then
// converted to the model and written back. Any exception is a rejection of bad input; a
// crash, a sanitizer report, a hang or runaway memory is a finding. The format is chosen at
// compile time (KORA_FUZZ_FORMAT 1 Mol2, 2 MOL/SD, 3 PDB, 4 SHELX RES).

#include <cstddef>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>

#include "kora/mdl/mol_file.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/shelx/res_file.hpp"

namespace {

// Reads the text in one mode, then writes it back in both, straight and through the model.
template <class File>
void exercise(std::string const& text, kora::ReadOptions const& reading) {
  std::istringstream in(text);
  File file;
  file.set_read_options(reading);
  try {
    file.read(in);
  } catch (std::exception const&) {
    return;
  }
  for (kora::WriteOptions const& writing :
       {kora::WriteOptions::classic_mode(), kora::WriteOptions::standard_mode()}) {
    try {
      auto const entry = file.database_entry();
      File again;
      again.set_write_options(writing);
      again.add(*entry);
      std::ostringstream out;
      again.print(out);
    } catch (std::exception const&) {
    }
    try {
      file.set_write_options(writing);
      std::ostringstream out;
      file.print(out);
    } catch (std::exception const&) {
    }
  }
}

template <class File>
void exercise(std::string const& text) {
  exercise<File>(text, kora::ReadOptions::classic_mode());
  exercise<File>(text, kora::ReadOptions::standard_mode());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(reinterpret_cast<char const*>(data), size);
#if KORA_FUZZ_FORMAT == 1
  exercise<kora::Mol2File>(text);
#elif KORA_FUZZ_FORMAT == 2
  exercise<kora::MolFile>(text);
#elif KORA_FUZZ_FORMAT == 3
  exercise<kora::PdbFile>(text);
#else
  exercise<kora::ResFile>(text);
#endif
  return 0;
}
