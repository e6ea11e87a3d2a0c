// libFuzzer harness for the file-level entry points: the bytes become a file, which every
// format identifies, indexes as a database and reads entry by entry (the first 64). Any
// exception is a rejection of bad input; a crash, a sanitizer report, a hang or runaway
// memory is a finding.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/framework/file_format.hpp"

namespace {

// One scratch file per fuzzing process, rewritten for every input.
std::string const& scratch_file() {
  static std::string const path =
      (std::filesystem::temp_directory_path() / ("kora_fuzz_" + std::to_string(::getpid())))
          .string();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const& path = scratch_file();
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
  }
  for (kora::THandle<kora::FileFormat> const& format : kora::file_formats()) {
    kora::FileFormat::OpenParameters const parameters{path, format->default_extension()};
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
    } catch (std::exception const&) {
    }
  }
  return 0;
}
