#pragma once

// Files opened by name for reading text. A file whose first two bytes are gzip's magic
// number (1f 8b), whatever its name, reads as the text it holds: every gzip member in turn
// (files joined with `cat a.gz b.gz` and bgzip's BGZF files read whole). Every place of the
// library that reads a file by name reads it through InputFile.

#include <istream>
#include <memory>
#include <streambuf>
#include <string>

namespace kora {

class InputFile : public std::istream {
 public:
  // Opens the file; when it cannot be opened the stream is failed (`!in` is true). A directory
  // opens as a file that reads nothing.
  explicit InputFile(std::string const& file_name);
  ~InputFile() override;
  InputFile(InputFile const&) = delete;
  InputFile& operator=(InputFile const&) = delete;

  bool is_open() const { return open_; }
  // Whether the file is gzip data read through decompression. Its positions (tellg, seekg)
  // are offsets in the text, and truncated or corrupt compressed data throws
  // std::runtime_error naming the file from the read that meets it (the stream sets
  // exceptions(badbit)).
  bool compressed() const { return compressed_; }

 private:
  std::unique_ptr<std::streambuf> buffer_;
  bool open_ = false;
  bool compressed_ = false;
};

// Whether the file's first two bytes are gzip's magic number; false when it cannot be read.
bool is_gzip_file(std::string const& file_name);

// The extension that names a file's format, without its dot: the last one, or the one before
// a final ".gz" (any case): "x.sdf.gz" gives "sdf", "x.pdb" gives "pdb", "x.gz" gives "".
std::string format_extension(std::string const& file_name);

}  // namespace kora
