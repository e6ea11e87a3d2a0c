// Writing entries to a file or a stream in one format.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sstream>

#include "kora/io.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"

namespace kora {

namespace fs = std::filesystem;

void write_entry(MoleculeFile& writer, CrystalStructureDatabaseEntry const& entry,
                 WriteOptions const& options, std::ostream& out) {
  writer.set_write_options(options);
  writer.clear();
  writer.add(entry);
  if (auto* mol = dynamic_cast<MolFile*>(&writer)) {
    if (options.v3000) mol->set_version(MolFile::V3000);
    auto const* sd = dynamic_cast<SDfileDatabaseEntry const*>(&entry);
    if (sd && sd->tags()) {
      for (auto const& [key, values] : sd->tags()->items())
        mol->add_sd_tag(key, values);
    }
  }
  writer.print(out);
}

std::string entry_text(CrystalStructureDatabaseEntry const& entry, std::string const& format,
                       WriteOptions const& options) {
  // A file object per format and thread, kept from entry to entry.
  thread_local std::map<std::string, std::unique_ptr<MoleculeFile>> writers;
  std::string const name = canonical_format(format);
  std::unique_ptr<MoleculeFile>& writer = writers[name];
  if (!writer) writer = make_file_object(name);
  thread_local std::ostringstream out;
  out.str(std::string());
  out.clear();
  write_entry(*writer, entry, options, out);
  return std::move(out).str();
}

// The file written: a temporary file beside the target, renamed over it at the end; or the
// target itself when it is standard output, a device or a pipe (renaming over those would
// replace the device or pipe itself).
class EntryWriter::Target {
 public:
  explicit Target(std::string const& target) : target_(target) {
    if (target_ == "-") return;
    std::error_code ec;
    fs::file_status const status = fs::status(target_, ec);  // follows symbolic links
    if (fs::is_directory(status)) throw output_error(target_ + ": is a directory");
    if (fs::exists(status) && !fs::is_regular_file(status)) {
      file_.open(target_, std::ios::binary);
      if (!file_) fail("cannot write");
      return;
    }
    // Through a symbolic link, the file it leads to is replaced and the link kept.
    fs::path path = target_;
    if (fs::is_symlink(fs::symlink_status(target_, ec))) {
      fs::path const real = fs::canonical(target_, ec);
      if (!ec) path = real;
    }
    path_ = path.string();
    struct stat existing {};
    if (::stat(path_.c_str(), &existing) == 0) mode_ = existing.st_mode & 07777;
    temporary_ = create_temporary(fs::absolute(path));
    file_.open(temporary_, std::ios::binary | std::ios::trunc);
    if (!file_) fail("cannot write");
  }
  Target(Target const&) = delete;
  Target& operator=(Target const&) = delete;
  ~Target() {
    if (!temporary_.empty()) std::remove(temporary_.c_str());
  }

  std::ostream& stream() { return target_ == "-" ? std::cout : file_; }

  void check() {
    if (!stream()) fail("write error");
  }

  void commit() {
    stream().flush();
    check();
    if (target_ == "-") return;
    file_.close();
    if (!file_) fail("write error");
    if (temporary_.empty()) return;  // written directly
    // The replaced file's mode; a new file keeps the mode it was created with (0666 less
    // the umask), as any new file.
    if (mode_ >= 0 && ::chmod(temporary_.c_str(), static_cast<mode_t>(mode_)) != 0)
      fail("cannot write");
    std::error_code ec;
    fs::rename(temporary_, path_, ec);
    if (ec) throw output_error(target_ + ": cannot write: " + ec.message());
    temporary_.clear();
  }

 private:
  [[noreturn]] void fail(char const* what) const {
    throw output_error(target_ + ": " + what + ": " + std::strerror(errno));
  }

  // A new file beside `path`, created with the mode new files get.
  std::string create_temporary(fs::path const& path) const {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
      char suffix[16];
      std::snprintf(suffix, sizeof suffix, ".kora-%08x", static_cast<unsigned>(random()));
      std::string const name = path.string() + suffix;
      int const fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd >= 0) {
        ::close(fd);
        return name;
      }
      if (errno != EEXIST) fail("cannot write");
    }
    fail("cannot write");
  }

  std::string target_;
  std::string path_;       // the file replaced: the target, or the file its link leads to
  std::string temporary_;  // empty when the target is written directly
  int mode_ = -1;          // the replaced file's permissions, -1 for a new file
  std::ofstream file_;
};

namespace {

std::string output_format(std::string const& path, std::string const& format) {
  std::string const name = format.empty() ? format_of_extension(path) : canonical_format(format);
  if (!format.empty() && name.empty()) throw unknown_format("unknown format '" + format + "'");
  if (name.empty()) {
    throw unknown_format(path == "-" ? std::string("give the format to write standard output in")
                                     : "cannot tell the format to write from '" + path + "'");
  }
  return name;
}

}  // namespace

EntryWriter::EntryWriter(std::string const& path, std::string const& format,
                         WriteOptions const& options)
    : format_(output_format(path, format)),
      options_(options),
      writer_(make_file_object(format_)),
      target_(std::make_unique<Target>(path)),
      out_(&target_->stream()) {}

EntryWriter::EntryWriter(std::ostream& out, std::string const& format, WriteOptions const& options)
    : format_(output_format("-", format)),
      options_(options),
      writer_(make_file_object(format_)),
      out_(&out) {}

EntryWriter::~EntryWriter() = default;

void EntryWriter::write(CrystalStructureDatabaseEntry const& entry) {
  if (!out_) throw output_error("an entry written after close()");
  write_entry(*writer_, entry, options_, *out_);
  check_();
}

void EntryWriter::write_text(std::string_view text) {
  if (!out_) throw output_error("an entry written after close()");
  out_->write(text.data(), static_cast<std::streamsize>(text.size()));
  check_();
}

void EntryWriter::check_() {
  if (target_) {
    target_->check();
  } else if (!*out_) {
    throw output_error("write error");
  }
}

void EntryWriter::close() {
  if (!out_) return;
  if (target_) {
    target_->commit();
    target_.reset();
  } else {
    out_->flush();
  }
  out_ = nullptr;
}

}  // namespace kora
