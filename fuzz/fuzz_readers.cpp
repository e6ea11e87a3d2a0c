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

// Reads the text, then writes it back, straight and through the model.
template <class File>
void exercise(std::string const& text, kora::ReadOptions const& reading,
              kora::WriteOptions const& writing) {
  std::istringstream in(text);
  File file;
  file.set_read_options(reading);
  try {
    file.read(in);
  } catch (std::exception const&) {
    return;
  }
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

// The input's length picks the reading and writing modes, so that each input costs one read
// and the corpus explores all four pairs. Standard writing types every atom anew (SYBYL types
// for Mol2, residues for PDB), which the instrumented build makes slow: inputs of more than
// 32 KB, whole proteins among the seeds, are written in classic mode only, so that one input
// stays within the per-input time limit.
template <class File>
void exercise(std::string const& text) {
  bool const standard_reading = (text.size() & 1U) != 0;
  bool const standard_writing = (text.size() & 2U) != 0 && text.size() <= (std::size_t{1} << 15);
  exercise<File>(
      text,
      standard_reading ? kora::ReadOptions::standard_mode() : kora::ReadOptions::classic_mode(),
      standard_writing ? kora::WriteOptions::standard_mode() : kora::WriteOptions::classic_mode());
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
