// Opening any input as a list of entries.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/io.hpp"
#include "kora/mdl/mol_file_file_format.hpp"

namespace kora {

namespace fs = std::filesystem;

namespace {

// The cause of a failure in one line: messages that explain themselves over several lines
// ("couldn't retrieve entry 6\nThe error message was:\n\nUnable to create bonds") are cut to
// their last line, which says what was wrong.
std::string one_line(std::string const& message) {
  std::string_view text = message;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
    text.remove_suffix(1);
  std::size_t const last = text.rfind('\n');
  if (last != std::string_view::npos) text.remove_prefix(last + 1);
  // "PdbFile::read(): Space group and unit cell inconsistent.": the class and operation that
  // found the fault say nothing to a user of the file.
  for (;;) {
    std::size_t const colon = text.find(": ");
    std::string_view const head = text.substr(0, colon);
    if (colon == std::string_view::npos || head.find("::") == std::string_view::npos ||
        head.find(' ') != std::string_view::npos)
      break;
    text.remove_prefix(colon + 2);
  }
  return std::string(text);
}

// The line (from 1) at which byte `offset` of a file stands; 0 when the file cannot tell.
long long line_at(std::string const& file_name, long long offset) {
  std::ifstream in(file_name, std::ios::binary);
  if (!in || offset < 0) return 0;
  std::vector<char> buffer(1 << 16);
  long long line = 1;
  long long left = offset;
  while (left > 0 && in) {
    in.read(buffer.data(), static_cast<std::streamsize>(
                               std::min<long long>(left, static_cast<long long>(buffer.size()))));
    std::streamsize const got = in.gcount();
    if (got <= 0) break;
    line += std::count(buffer.data(), buffer.data() + got, '\n');
    left -= got;
  }
  return left == 0 ? line : 0;
}

// A copy of a stream in a new temporary file, whose name is returned.
std::string spool(std::istream& in, std::string const& name) {
  std::error_code ec;
  fs::path directory = fs::temp_directory_path(ec);
  if (ec) directory = "/tmp";
  std::string pattern = (directory / "kora-input-XXXXXX").string();
  int const fd = mkstemp(pattern.data());
  if (fd < 0) throw io_error(name + ": cannot keep a copy to read: " + std::strerror(errno));
  close(fd);
  std::ofstream out(pattern, std::ios::binary | std::ios::trunc);
  out << in.rdbuf();
  // An empty stream copies nothing and sets failbit on the output: that is no error.
  if (in.bad() || (!out && in.peek() != std::char_traits<char>::eof())) {
    std::remove(pattern.c_str());
    throw io_error(name + ": cannot read");
  }
  out.close();
  return pattern;
}

}  // namespace

std::string Entries::about_input(std::string const& path, std::string const& message) const {
  std::string cause = one_line(message);
  // Messages that name the file already (compressed data) name it once, by the input's name.
  if (cause.rfind(path + ": ", 0) == 0) cause.erase(0, path.size() + 2);
  return name_ + ": " + cause;
}

Entries::Entries(std::string const& path, OpenOptions const& options) : name_(path) {
  if (path == "-") {
    spool_ = spool(std::cin, "standard input");
    open_(spool_, options);
  } else {
    open_(path, options);
  }
}

Entries::Entries(std::istream& in, std::string const& name, OpenOptions const& options)
    : name_(name), spool_(spool(in, name)) {
  open_(spool_, options);
}

Entries::Entries(Entries&& other) noexcept
    : name_(std::move(other.name_)),
      format_(std::move(other.format_)),
      read_(other.read_),
      index_key_(std::move(other.index_key_)),
      turn_(std::move(other.turn_)),
      database_(std::move(other.database_)),
      whole_file_(std::move(other.whole_file_)) {
  spool_.swap(other.spool_);
}

Entries& Entries::operator=(Entries&& other) noexcept {
  name_ = std::move(other.name_);
  format_ = std::move(other.format_);
  read_ = other.read_;
  index_key_ = std::move(other.index_key_);
  turn_ = std::move(other.turn_);
  spool_.swap(other.spool_);
  database_ = std::move(other.database_);
  whole_file_ = std::move(other.whole_file_);
  return *this;
}

Entries::~Entries() {
  // The database closes its own file with it; the copy can go once nothing reads it.
  database_ = {};
  if (!spool_.empty()) std::remove(spool_.c_str());
}

void Entries::open_(std::string const& path, OpenOptions const& options) {
  read_ = options.read;
  std::error_code ec;
  fs::file_status const status = fs::status(path, ec);
  if (fs::is_directory(status)) throw missing_file(name_ + ": is a directory");
  if (!fs::is_regular_file(status)) throw missing_file(name_ + ": no such file");
  FileFormat::OpenParameters parameters{path, format_extension(path), options.read};
  THandle<FileFormat> format;
  if (!options.format.empty()) {
    format_ = canonical_format(options.format);
    if (format_.empty()) throw unknown_format("unknown format '" + options.format + "'");
    format = format_descriptor(format_);
  } else {
    format = identify_file(path);
    if (!format) throw unknown_format(name_ + ": unknown format");
    format_ = canonical_format(*format);
  }
  // The SHELX descriptor takes files by their name: .ins and .RES files are SHELX files too.
  if (format_ == "res") parameters.extension = "res";
  if (format_ == "sdf") {
    format = THandle<FileFormat>(make_handle<MolFileFileFormat>(
        options.short_identifiers ? FileFormat::normalised_identifiers
                                  : FileFormat::verbatim_identifiers));
  }
  // A saved index is used by inputs opened the way it was made: same format, same mode,
  // same identifiers; "1" is the version of the indexing rules.
  index_key_ = "1 " + format_ + (options.read.standard() ? " standard" : " classic") +
               (options.short_identifiers ? " short" : "");
  if (spool_.empty()) parameters.saved_index = index_key_;
  try {
    database_ = format->make_database(parameters);
  } catch (std::exception const& e) {
    throw io_error(about_input(path, e.what()));
  }
  if (!database_) throw unknown_format(name_ + ": not a " + format->name());
  if (database_->size() > 0) return;
  // The index found no entry: the file read as one structure.
  std::unique_ptr<MoleculeFile> file = make_file_object(format_);
  file->set_read_options(options.read);
  try {
    file->read(path);
    whole_file_ = file->database_entry();
  } catch (std::exception const& e) {
    throw io_error(about_input(path, e.what()));
  }
}

int Entries::size() const {
  return whole_file_ ? 1 : database_->size();
}

DatabaseEntryIdentifier Entries::identifier(int i) const {
  return whole_file_ ? whole_file_->identifier() : database_->identifier(i);
}

long long Entries::offset(int i) const {
  if (whole_file_) return 0;
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(database_);
  return index ? static_cast<long long>(index->position(i)) : -1;
}

THandle<CrystalStructureDatabaseEntry> Entries::entry(int i) const {
  if (i < 0 || i >= size()) {
    throw database_error(name_ + ": no entry " + std::to_string(i) + " (it has " +
                         std::to_string(size()) + ")");
  }
  if (whole_file_) return whole_file_;
  try {
    std::scoped_lock const lock(*turn_);
    return database_->entry(i);
  } catch (std::exception const& e) {
    throw entry_failure_(i, e.what());
  }
}

database_error Entries::entry_failure_(int i, std::string const& cause) const {
  // "file:line: entry N (identifier): cause", the line being where the entry starts.
  std::string where = name_;
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(database_);
  if (long long const line = index ? line_at(index->file_name(), offset(i)) : 0; line > 0)
    where += ":" + std::to_string(line);
  return database_error(where + ": entry " + std::to_string(i) + " (" + identifier(i).str() +
                        "): " + one_line(cause));
}

THandle<CrystalStructureDatabaseEntry> Entries::entry_from_text_(int i, std::string&& text,
                                                                 MoleculeFile& file) const {
  // As the database reads an entry: its bytes parsed by a file object kept from entry to entry.
  std::istringstream input(std::move(text));
  try {
    file.clear();
    file.read(input);
    THandle<CrystalStructureDatabaseEntry> const entry = file.database_entry();
    entry->set_identifier(database_->identifier(i));
    return entry;
  } catch (std::exception const& e) {
    throw entry_failure_(i, e.what());
  }
}

std::string Entries::text(int i) const {
  if (auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(database_);
      index && !whole_file_) {
    std::scoped_lock const lock(*turn_);
    return index->text(i);
  }
  if (i != 0) throw database_error(name_ + ": no entry " + std::to_string(i) + " (it has 1)");
  // The whole file is the one entry.
  std::ifstream in(spool_.empty() ? name_ : spool_, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (!in && !in.eof()) throw io_error(name_ + ": cannot read");
  return std::move(bytes).str();
}

std::string Entries::save_index() const {
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(database_);
  if (!spool_.empty() || whole_file_ || !index)
    throw io_error(name_ + ": only the index of a file of several entries is saved");
  try {
    std::scoped_lock const lock(*turn_);
    index->save_index(index_key_);
  } catch (std::exception const& e) {
    throw io_error(one_line(e.what()));
  }
  return saved_index_name(name_);
}

int Entries::find(std::string const& identifier) const {
  for (int i = 0; i < size(); ++i) {
    if (this->identifier(i).str() == identifier) return i;
  }
  return -1;
}

int Entries::nearest(std::string const& identifier,
                     Database<CrystalStructureDatabaseEntry>::IdentifierMatch& match) const {
  if (!whole_file_) return database_->nearest_entry(DatabaseEntryIdentifier(identifier), match);
  // The whole file as one entry: the only one there is.
  using Match = Database<CrystalStructureDatabaseEntry>::IdentifierMatch;
  DatabaseEntryIdentifier const id(identifier);
  DatabaseEntryIdentifier const only = whole_file_->identifier();
  CaseInsensitiveStringLess const less;
  if (only == id) {
    match = Match::exact;
  } else {
    match = less(only, id) || less(id, only) ? Match::nearest_only : Match::equal_ignoring_case;
  }
  return 0;
}

Entries open(std::string const& path, OpenOptions const& options) {
  return Entries(path, options);
}

}  // namespace kora
