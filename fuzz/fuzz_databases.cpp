// libFuzzer harness for the file-level entry points: the bytes become a file, which every
// format identifies, indexes as a database and reads entry by entry (the first 64). The
// index of the first database is saved, damaged with bytes of the input and opened again,
// so that saved indexes are read with every kind of fault. Any exception is a rejection of
// bad input; a crash, a sanitizer report, a hang or runaway memory is a finding.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"

namespace {

// One scratch file per fuzzing process, rewritten for every input.
std::string const& scratch_file() {
  static std::string const path =
      (std::filesystem::temp_directory_path() / ("kora_fuzz_" + std::to_string(::getpid())))
          .string();
  return path;
}

// Saves the database's index, overwrites bytes of the saved file at places and with values
// that the input's last eight bytes choose, and reads the first entries through it.
void read_through_saved_index(kora::FileFormat const& format,
                              kora::FileFormat::OpenParameters parameters,
                              kora::Database<kora::CrystalStructureDatabaseEntry> const& db,
                              std::uint8_t const* data, std::size_t size) {
  auto const* index = dynamic_cast<kora::FlatFileDatabaseIndex const*>(&db);
  if (index == nullptr) return;
  std::string const saved = kora::saved_index_name(parameters.file_name);
  index->save_index("fuzz");
  std::string bytes;
  {
    std::ifstream in(saved, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  if (!bytes.empty()) {
    for (std::size_t k = size - 8; k + 1 < size; k += 2)
      bytes[(std::size_t(data[k]) * 131) % bytes.size()] = static_cast<char>(data[k + 1]);
    if (data[size - 8] % 5 == 0) bytes.resize(std::size_t(data[size - 7]) % bytes.size());
    std::ofstream(saved, std::ios::binary | std::ios::trunc) << bytes;
  }
  parameters.saved_index = "fuzz";
  try {
    auto const again = format.make_database(parameters);
    for (int i = 0; again && i < again->size() && i < 64; ++i) {
      try {
        (void)again->entry(i);
        (void)again->index(again->identifier(i));
      } catch (kora::database_error const&) {
      }
    }
  } catch (std::exception const&) {
  }
  std::filesystem::remove(saved);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const& path = scratch_file();
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
  }
  bool saved = false;
  for (kora::THandle<kora::FileFormat> const& format : kora::file_formats()) {
    kora::FileFormat::OpenParameters parameters{path, format->default_extension()};
    try {
      if (auto const* text = dynamic_cast<kora::TextIdentifiedFileFormat const*>(format.get()))
        (void)text->identify(path);
      auto const db = format->make_database(parameters);
      if (!db) continue;
      for (int i = 0; i < db->size() && i < 64; ++i) {
        try {
          auto const entry = db->entry(i);
          (void)entry->identifier();
          (void)db->index(db->identifier(i));
        } catch (kora::database_error const&) {
        }
      }
      if (!saved && size >= 8) {
        saved = true;
        read_through_saved_index(*format, parameters, *db, data, size);
      }
    } catch (std::exception const&) {
    }
  }
  return 0;
}
