#pragma once

/// \file
/// A read-only database over one multi-entry text file: indexed once when it is built, then
/// read one entry at a time by seeking to the entry and reading it with the format's file
/// object.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <fstream>
#include <ios>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/framework/database.hpp"
#include "kora/framework/file_format.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

/// The entry index of a format: finds where each entry of a file starts and what it is
/// called.
class FlatFileDatabaseReader {
 public:
  explicit FlatFileDatabaseReader(std::string file_name) : file_name_(std::move(file_name)) {}
  virtual ~FlatFileDatabaseReader() = default;

  std::string const& file_name() const { return file_name_; }

  /// Appends one identifier and the stream position where the entry starts, per entry.
  virtual void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                     std::vector<std::streampos>& positions) const = 0;
  /// The identifier of an entry that names none: "ENTRY" followed by the number ("ENTRY3").
  virtual DatabaseEntryIdentifier generate_identifier_from_index(int number) const;

 private:
  std::string file_name_;
};

/// What every flat-file database tells of its file, whatever its entry, reader and file
/// types: reached from a database handle with handle_dynamic_cast.
class FlatFileDatabaseIndex {
 public:
  virtual ~FlatFileDatabaseIndex() = default;
  virtual std::string const& file_name() const = 0;
  /// Where entry i starts in the file; database_error outside the index.
  virtual std::streampos position(int i) const = 0;
  /// The bytes of entry i as the file holds them; database_error outside the index or when the
  /// file no longer holds the bytes it was indexed with.
  virtual std::string text(int i) const = 0;
  /// How later entries are read (classic unless set).
  virtual void set_read_options(ReadOptions const& options) = 0;
  virtual ReadOptions const& read_options() const = 0;
};

/// What a file was when it was examined: its kind, size, last modification time and identity
/// (device and inode).
struct FileState {
  enum Kind { missing, regular, other };  // missing: absent or cannot be examined

  Kind kind = missing;
  std::uintmax_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since the epoch
  std::uintmax_t device = 0;
  std::uintmax_t inode = 0;

  /// The state of the file a name leads to (symbolic links are followed).
  static FileState of(std::string const& file_name) noexcept;
  bool operator==(FileState const&) const = default;
};

namespace detail {

class GzipIndex;
class Inflater;

// The file a database indexed, held to the bytes it had when it was examined. Its state and
// a checksum of its first and last blocks are taken before indexing. Every read compares the
// file with them: a file whose size and time are unchanged reads on at once; one that was
// touched or appended to reads on once its first and last indexed blocks are found
// unchanged (an append leaves the indexed bytes where they were); one that is shorter, is
// another file (other device or inode) or whose indexed blocks differ is refused, since the
// positions of its entries may no longer hold. Bytes are read through one descriptor,
// opened at the first read and kept open.
//
// A gzip file (recognised by its first bytes) is held to its compressed bytes the same way,
// while positions and the indexed bytes are those of its text. Indexing it also records
// decompression checkpoints (see Indexing), so that reading an entry inflates from the last
// checkpoint at or before it: at most one checkpoint interval (1 MiB of text in files of up to
// 2 GiB of text; one block in BGZF files) besides the entry itself. Entries read in order
// carry on inflating from where the last one ended.
class IndexedFile {
 public:
  explicit IndexedFile(std::string file_name);
  ~IndexedFile();
  IndexedFile(IndexedFile const&) = delete;
  IndexedFile& operator=(IndexedFile const&) = delete;

  // While an Indexing object lives, streams that its thread opens by the file's name
  // (InputFile, as the format readers do) record the decompression checkpoints of a gzip file:
  // the reader's pass over the text is also the pass that makes it seekable.
  class Indexing {
   public:
    explicit Indexing(IndexedFile const& file);
    ~Indexing();
    Indexing(Indexing const&) = delete;
    Indexing& operator=(Indexing const&) = delete;

   private:
    std::string const* previous_name_;
    std::shared_ptr<GzipIndex> previous_index_;
  };

  // Where the indexed bytes end, once the reader has indexed the file: the size the file had
  // when examined, or the length of a gzip file's text (inflating whatever the reader left
  // unread, so that the checkpoints reach the end). Truncated or corrupt compressed data
  // throws std::runtime_error naming the file.
  std::int64_t finish_indexing();
  bool compressed() const { return index_ != nullptr; }
  // Bytes of text inflated by read() so far: what random access into a gzip file cost.
  std::int64_t inflated() const;

  // The state taken before indexing; its size is where the indexed (for a gzip file, the
  // compressed) bytes end.
  FileState const& state() const { return state_; }

  // Bytes [begin, end) of the indexed bytes into `text`. missing: the file is gone or cannot
  // be opened or read; changed: it no longer holds the bytes it was indexed with.
  enum Result { complete, missing, changed };
  Result read(std::int64_t begin, std::int64_t end, std::string& text) const;

  // The length of the first and of the last block whose checksum is kept.
  static constexpr std::size_t checked_block = std::size_t(1) << 16;

 private:
  bool open_() const;
  // Whether the file, now in state `now`, still holds the indexed bytes.
  bool holds_indexed_bytes_(FileState const& now) const;
  Result read_text_(std::int64_t begin, std::int64_t end, std::string& text) const;

  std::string file_name_;
  FileState state_;
  bool summed_ = false;  // whether the checksum could be taken
  std::uint64_t checksum_ = 0;
  mutable FileState accepted_;  // the last state found to hold the indexed bytes
  mutable int descriptor_ = -1;
  std::shared_ptr<GzipIndex> index_;            // a gzip file's checkpoints; null for plain files
  mutable std::unique_ptr<Inflater> inflater_;  // reads a gzip file's entries
  mutable bool inflating_ = false;              // whether inflater_ is in a usable state
};

// Where each entry's bytes end: at the nearest start of another entry after its own start,
// else at `size`, the end of the indexed bytes; so that two entries indexed at one position
// both read to the real end of the entry rather than one of them reading nothing.
std::vector<std::int64_t> entry_ends(std::vector<std::streampos> const& positions,
                                     std::int64_t size);

}  // namespace detail

/// Reading is done with one file object per database: a database may be read from one thread
/// at a time. Several databases over the same file may be read from different threads.
template <class Entry, class Reader, class File>
class FlatFileDatabase : public Database<Entry>, public FlatFileDatabaseIndex {
 public:
  /// Indexes the file with Reader(file_name, reader_arguments...); its errors pass through. A
  /// name that leads to anything but a regular file (a directory, a device, a pipe) throws
  /// database_error: entries are read by seeking. Entries the reader finds beyond the size
  /// the file had when it was examined (written while it was being indexed) are left out; a
  /// negative position throws database_error. A gzip file is indexed and read as its text
  /// (positions are offsets in the text); its truncated or corrupt data throws the reader's
  /// std::runtime_error naming the file.
  template <class... ReaderArguments>
  explicit FlatFileDatabase(std::string const& file_name, ReaderArguments&&... reader_arguments)
      : file_name_(file_name), indexed_(file_name), file_(make_handle<File>()) {
    if (indexed_.state().kind == FileState::other) {
      throw database_error("FlatFileDatabase: " + file_name + " is not a regular file");
    }
    auto const reader =
        make_handle<Reader>(file_name, std::forward<ReaderArguments>(reader_arguments)...);
    {
      detail::IndexedFile::Indexing const indexing(indexed_);
      reader->parse(identifiers_, positions_);
    }
    auto const size = indexed_.finish_indexing();
    if (identifiers_.size() != positions_.size()) {
      throw database_error("FlatFileDatabase: the index of " + file_name +
                           " has different numbers of identifiers and positions");
    }
    std::size_t kept = 0;
    for (std::size_t k = 0; k < positions_.size(); ++k) {
      std::streamoff const at = positions_[k];
      if (at < 0) {
        throw database_error("FlatFileDatabase: the index of " + file_name +
                             " has a position before the start of the file");
      }
      if (at > size) continue;
      if (kept != k) {
        positions_[kept] = positions_[k];
        identifiers_[kept] = std::move(identifiers_[k]);
      }
      ++kept;
    }
    positions_.resize(kept);
    identifiers_.resize(kept);
    ends_ = detail::entry_ends(positions_, size);
  }

  std::string const& file_name() const override { return file_name_; }
  std::streampos position(int i) const override { return positions_.at(checked_(i)); }
  std::string text(int i) const override {
    std::string bytes;
    read_bytes_(i, bytes);
    return bytes;
  }
  void set_read_options(ReadOptions const& options) override { file_->set_read_options(options); }
  ReadOptions const& read_options() const override { return file_->read_options(); }

  int size() const override { return static_cast<int>(identifiers_.size()); }
  DatabaseEntryIdentifier identifier(int i) const override { return identifiers_.at(checked_(i)); }
  int index(DatabaseEntryIdentifier const& id) const override {
    for (std::size_t i = 0; i < identifiers_.size(); ++i) {
      if (identifiers_[i] == id) return static_cast<int>(i);
    }
    return size();
  }
  bool identifier_exists(DatabaseEntryIdentifier const& id) const override {
    return index(id) != size();
  }
  void flush() override {}

  /// Entry i, read from the file. The entry's bytes run from its position to the next entry's
  /// start (detail::entry_ends) and are read in one piece into memory and parsed from there.
  /// The file must still hold the bytes it was indexed with (detail::IndexedFile): a file that
  /// was only touched or appended to reads on; one rewritten, truncated or replaced since it
  /// was indexed throws database_error rather than giving whatever now stands at the old
  /// position.
  THandle<Entry> entry(int i) const override {
    std::size_t const k = read_bytes_(i, text_);
    input_.clear();
    input_.str(std::move(text_));
    try {
      file_->clear();
      file_->read(input_);
      text_ = std::move(input_).str();  // keeps the buffer for the next entry
      THandle<MoleculeFile> const file = file_;
      THandle<Entry> const result = file->database_entry();
      result->set_identifier(identifiers_[k]);
      return result;
    } catch (std::exception const& e) {
      throw database_error("FlatFileDatabase::entry: couldn't retrieve entry " + std::to_string(i) +
                           "\nThe error message was:\n\n" + e.what());
    }
  }
  THandle<Entry> entry(DatabaseEntryIdentifier const& id) const override {
    return entry(index(id));
  }

 private:
  // The bytes of entry i into `bytes`; its place in the index.
  std::size_t read_bytes_(int i, std::string& bytes) const {
    std::size_t const k = checked_(i);
    auto const begin = static_cast<std::int64_t>(std::streamoff(positions_[k]));
    switch (indexed_.read(begin, ends_[k], bytes)) {
      case detail::IndexedFile::missing:
        throw database_error("FlatFileDatabase::entry(): couldn't open file");
      case detail::IndexedFile::changed:
        throw database_error("FlatFileDatabase::entry: couldn't retrieve entry " +
                             std::to_string(i) + ": " + file_name_ +
                             " has changed since it was indexed");
      case detail::IndexedFile::complete:
        break;
    }
    return k;
  }

  // An index outside the list is refused before anything is read.
  std::size_t checked_(int i) const {
    if (i < 0 || i >= size()) {
      throw database_error("FlatFileDatabase::entry: no entry " + std::to_string(i) + " in " +
                           file_name_ + ", which has " + std::to_string(size()) + " entries");
    }
    return static_cast<std::size_t>(i);
  }

  std::string file_name_;
  detail::IndexedFile indexed_;  // examined before indexing, so a change during it is noticed
  std::vector<DatabaseEntryIdentifier> identifiers_;
  std::vector<std::streampos> positions_;
  std::vector<std::int64_t> ends_;  // where each entry's bytes end
  THandle<File> file_;
  mutable std::string text_;          // the bytes of the entry being read
  mutable std::istringstream input_;  // reads them
};

/// The database a format's make_database gives: the file the parameters name, indexed with
/// Reader(file_name, reader_arguments...), reading its entries with the parameters' options.
template <class Reader, class File, class... ReaderArguments>
THandle<Database<CrystalStructureDatabaseEntry>> make_flat_file_database(
    FileFormat::OpenParameters const& parameters, ReaderArguments&&... reader_arguments) {
  auto const database = make_handle<FlatFileDatabase<CrystalStructureDatabaseEntry, Reader, File>>(
      parameters.file_name, std::forward<ReaderArguments>(reader_arguments)...);
  database->set_read_options(parameters.read_options);
  return THandle<Database<CrystalStructureDatabaseEntry>>(database);
}

}  // namespace kora
