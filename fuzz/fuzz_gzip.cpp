// libFuzzer harness for compressed input. The first byte chooses what becomes of the rest:
// gzip-compressed, BGZF-compressed (small blocks, so that entries span blocks), split into
// two gzip members, taken as raw gzip bytes as they stand, or compressed and then truncated
// or corrupted at a place the second byte chooses. The file, named with the extension the
// first byte also chooses, is identified by every format, indexed as a database, read entry
// by entry forwards and backwards (random access through the checkpoints) and read whole by
// the format's file object. Inputs that inflate to more than 4 MiB are skipped, so that the
// work per input stays bounded; anything thrown is a rejection of bad input.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "../tests/io/gzip_writer.hpp"
#include "framework/gzip.hpp"
#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/framework/file_format.hpp"
#include "kora/framework/input_file.hpp"

namespace {

std::string const& scratch_stem() {
  static std::string const path =
      (std::filesystem::temp_directory_path() / ("kora_fuzz_gzip_" + std::to_string(::getpid())))
          .string();
  return path;
}

// The compressed file an input stands for.
std::string packed(std::uint8_t mode, std::uint8_t where, std::string_view text) {
  std::string const gz = kora::test::deflated(text, 31, 1 + mode % 9);
  std::size_t const at = gz.empty() ? 0 : where * gz.size() / 256;
  switch (mode % 6) {
    case 0:
      return gz;
    case 1:
      return kora::test::bgzf(text, 64 + where * 4);
    case 2:
      return kora::test::deflated(text.substr(0, text.size() / 2), 31, 6) +
             kora::test::deflated(text.substr(text.size() / 2), 31, 6);
    case 3:
      return std::string(text);
    case 4:
      return gz.substr(0, at);
    default: {
      std::string corrupt = gz;
      if (!corrupt.empty()) corrupt[at] = static_cast<char>(corrupt[at] ^ (1 + where % 255));
      return corrupt;
    }
  }
}

// Whether the file inflates to at most `limit` bytes of text (or fails before).
bool bounded(std::string const& path, std::int64_t limit) {
  int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  bool within = true;
  try {
    kora::detail::Inflater inflater(descriptor, path);
    inflater.start(nullptr);
    within = !inflater.skip(limit + 1);
  } catch (std::exception const&) {
  }
  ::close(descriptor);
  return within;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size < 2) return 0;
  static char const* const extensions[] = {".sdf.gz", ".mol2.gz", ".pdb.gz", ".res.gz"};
  std::string const path = scratch_stem() + extensions[data[0] / 6 % 4];
  {
    std::string const bytes = packed(
        data[0], data[1], std::string_view(reinterpret_cast<char const*>(data) + 2, size - 2));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  if (!bounded(path, std::int64_t(4) << 20)) {
    std::filesystem::remove(path);
    return 0;
  }
  kora::FileFormat::OpenParameters const parameters{path, kora::format_extension(path)};
  for (kora::THandle<kora::FileFormat> const& format : kora::file_formats()) {
    try {
      if (auto const* text = dynamic_cast<kora::TextIdentifiedFileFormat const*>(format.get()))
        (void)text->identify(path);
      if (auto const file = format->make_molecule_file(parameters)) file->read(path);
    } catch (std::exception const&) {
    }
    try {
      auto const db = format->make_database(parameters);
      if (!db) continue;
      int const n = std::min(db->size(), 64);
      for (int k = 0; k < 2 * n; ++k) {
        int const i = k < n ? k : 2 * n - 1 - k;  // forwards, then backwards
        try {
          (void)db->entry(i)->identifier();
        } catch (kora::database_error const&) {
        }
      }
    } catch (std::exception const&) {
    }
  }
  std::filesystem::remove(path);
  return 0;
}
