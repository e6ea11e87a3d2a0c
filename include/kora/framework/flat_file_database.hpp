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
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
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
  /// Writes the index beside the file (saved_index_name), for databases opened over the same
  /// bytes with the same key (SavedIndexKey) to use instead of indexing. A compressed file's
  /// index keeps its decompression checkpoints too, so that reading through it inflates only
  /// from the checkpoint before an entry; failures throw database_error.
  virtual void save_index(std::string const& key) const = 0;
};

/// The file an index is saved in: the file's name followed by ".kora-index".
std::string saved_index_name(std::string const& file_name);

/// What a saved index must have been made for to be used: the format and the options that
/// decide how the file is indexed, in a string of the caller's making. Empty: indexes are
/// never read from a saved file.
struct SavedIndexKey {
  std::string key;
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
// opened at the first read and kept open. Entries read one after another (each starting
// where the last ended) are read a block ahead, one system call for many entries; the block
// is dropped whenever the file's state is not the one it was read in.
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
  // A gzip file's checkpoints; null for a plain file.
  GzipIndex* gzip_index() const { return index_.get(); }
  std::string const& file_name() const { return file_name_; }
  // Bytes of text inflated by read() so far: what random access into a gzip file cost.
  std::int64_t inflated() const;

  // The state taken before indexing; its size is where the indexed (for a gzip file, the
  // compressed) bytes end.
  FileState const& state() const { return state_; }
  // The checksum of the first and last blocks taken then; empty when it could not be taken.
  std::optional<std::uint64_t> checksum() const {
    return summed_ ? std::optional<std::uint64_t>(checksum_) : std::nullopt;
  }

  // Bytes [begin, end) of the indexed bytes into `text`. missing: the file is gone or cannot
  // be opened or read; changed: it no longer holds the bytes it was indexed with.
  enum Result { complete, missing, changed };
  Result read(std::int64_t begin, std::int64_t end, std::string& text) const;

  // The length of the first and of the last block whose checksum is kept.
  static constexpr std::size_t checked_block = std::size_t(1) << 16;

 private:
  bool open_() const;
  // The state of the file read from: that of the open descriptor while the file has a name.
  FileState current_state_() const;
  // Whether the file, now in state `now`, still holds the indexed bytes.
  bool holds_indexed_bytes_(FileState const& now) const;
  Result read_text_(std::int64_t begin, std::int64_t end, std::string& text) const;
  // Bytes [begin, end) of a plain file, from the block read ahead when it holds them.
  bool read_plain_(std::int64_t begin, std::int64_t end, std::string& text) const;

  std::string file_name_;
  FileState state_;
  bool summed_ = false;  // whether the checksum could be taken
  std::uint64_t checksum_ = 0;
  mutable FileState accepted_;  // the last state found to hold the indexed bytes
  mutable int descriptor_ = -1;
  std::shared_ptr<GzipIndex> index_;            // a gzip file's checkpoints; null for plain files
  mutable std::unique_ptr<Inflater> inflater_;  // reads a gzip file's entries
  mutable bool inflating_ = false;              // whether inflater_ is in a usable state
  mutable std::string ahead_;                   // a plain file's bytes from ahead_begin_
  mutable std::int64_t ahead_begin_ = 0;
  mutable std::int64_t last_end_ = -1;  // where the last read ended
};

// The identifiers and starts of a file's entries, compactly: the identifiers one after
// another in one block, so that an index of millions of entries is a few blocks of memory.
// The blocks are the index's own (as a reader makes it), or views into a saved index mapped
// into memory, kept mapped while any copy of the index lives.
class EntryIndex {
 public:
  EntryIndex() = default;
  // Views of a saved index, kept valid by `keeper`.
  EntryIndex(std::shared_ptr<void const> keeper, std::span<std::int64_t const> starts,
             std::span<std::uint64_t const> name_ends, std::string_view names)
      : starts_(starts), name_ends_(name_ends), names_(names), keeper_(std::move(keeper)) {}
  // Moving keeps the blocks where they are, so the views stay valid; a copy would not.
  EntryIndex(EntryIndex&&) noexcept = default;
  EntryIndex& operator=(EntryIndex&&) noexcept = default;
  EntryIndex(EntryIndex const&) = delete;
  EntryIndex& operator=(EntryIndex const&) = delete;

  void reserve(std::size_t entries) {
    kept_starts_.reserve(entries);
    kept_name_ends_.reserve(entries);
  }
  // Appends an entry to an index of its own making.
  void add(std::string_view name, std::int64_t start) {
    kept_starts_.push_back(start);
    kept_names_.insert(kept_names_.end(), name.begin(), name.end());
    kept_name_ends_.push_back(kept_names_.size());
    starts_ = kept_starts_;
    name_ends_ = kept_name_ends_;
    names_ = std::string_view(kept_names_.data(), kept_names_.size());
  }

  std::size_t size() const { return starts_.size(); }
  std::int64_t start(std::size_t k) const { return starts_[k]; }
  std::string_view name(std::size_t k) const {
    std::size_t const begin = k == 0 ? 0 : name_ends_[k - 1];
    return names_.substr(begin, name_ends_[k] - begin);
  }
  std::span<std::int64_t const> starts() const { return starts_; }
  // Identifier k ends at name_ends()[k] in names() and begins where k - 1 ends.
  std::span<std::uint64_t const> name_ends() const { return name_ends_; }
  std::string_view names() const { return names_; }

 private:
  std::span<std::int64_t const> starts_;
  std::span<std::uint64_t const> name_ends_;
  std::string_view names_;
  std::vector<std::int64_t> kept_starts_;  // an index of its own making
  std::vector<std::uint64_t> kept_name_ends_;
  std::vector<char> kept_names_;
  std::shared_ptr<void const> keeper_;  // a mapped saved index
};

// The index saved beside a file for `key`, if it was made for the bytes the file now holds (the
// size, time and checksum `file` took); nothing when there is none, it is unreadable, made
// for another key or other bytes, or malformed: a saved index is never trusted blindly.
std::optional<EntryIndex> load_saved_index(IndexedFile const& file, std::string const& key);
// Saves an index beside its file, through a temporary file renamed into place; throws
// database_error.
void save_index(IndexedFile const& file, std::string const& key, EntryIndex const& index);

// Where each entry's bytes end: at the nearest start of another entry after its own start,
// else at `size`, the end of the indexed bytes; so that two entries indexed at one position
// both read to the real end of the entry rather than one of them reading nothing.
std::vector<std::int64_t> entry_ends(std::span<std::int64_t const> starts, std::int64_t size);

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
    open_(SavedIndexKey{}, std::forward<ReaderArguments>(reader_arguments)...);
  }

  /// As above, but an index saved beside the file for this key (save_index) is used instead
  /// of indexing, when it was made for the bytes the file holds now.
  template <class... ReaderArguments>
  FlatFileDatabase(SavedIndexKey const& saved, std::string const& file_name,
                   ReaderArguments&&... reader_arguments)
      : file_name_(file_name), indexed_(file_name), file_(make_handle<File>()) {
    open_(saved, std::forward<ReaderArguments>(reader_arguments)...);
  }

  std::string const& file_name() const override { return file_name_; }
  std::streampos position(int i) const override {
    return std::streampos(std::streamoff(index_.start(checked_(i))));
  }
  std::string text(int i) const override {
    std::string bytes;
    read_bytes_(i, bytes);
    return bytes;
  }
  void set_read_options(ReadOptions const& options) override { file_->set_read_options(options); }
  ReadOptions const& read_options() const override { return file_->read_options(); }
  void save_index(std::string const& key) const override {
    detail::save_index(indexed_, key, index_);
  }

  int size() const override { return static_cast<int>(index_.size()); }
  DatabaseEntryIdentifier identifier(int i) const override {
    return DatabaseEntryIdentifier(std::string(index_.name(checked_(i))));
  }
  int index(DatabaseEntryIdentifier const& id) const override {
    for (std::size_t i = 0; i < index_.size(); ++i) {
      if (index_.name(i) == id.str()) return static_cast<int>(i);
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
      result->set_identifier(DatabaseEntryIdentifier(std::string(index_.name(k))));
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
    std::int64_t end = 0;
    if (ends_.empty()) {
      // The next start after this one's, else the end of the indexed bytes.
      std::size_t next = k + 1;
      while (next < index_.size() && index_.start(next) == index_.start(k))
        ++next;
      end = next < index_.size() ? index_.start(next) : std::max(size_, index_.start(k));
    } else {
      end = ends_[k];
    }
    switch (indexed_.read(index_.start(k), end, bytes)) {
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

  // The index: loaded when a saved one fits, else made by the reader.
  template <class... ReaderArguments>
  void open_(SavedIndexKey const& saved, ReaderArguments&&... reader_arguments) {
    if (indexed_.state().kind == FileState::other) {
      throw database_error("FlatFileDatabase: " + file_name_ + " is not a regular file");
    }
    std::int64_t size = 0;
    std::optional<detail::EntryIndex> loaded;
    if (!saved.key.empty()) loaded = detail::load_saved_index(indexed_, saved.key);
    if (loaded) {
      index_ = std::move(*loaded);
      size = indexed_.finish_indexing();  // the text's length: a gzip file's was loaded too
    } else {
      size = index_file_(std::forward<ReaderArguments>(reader_arguments)...);
    }
    size_ = size;
    // Entries in file order (as indexes almost always give them) find their ends as they are
    // read; others have them worked out now.
    if (!std::is_sorted(index_.starts().begin(), index_.starts().end()))
      ends_ = detail::entry_ends(index_.starts(), size);
  }

  // The file indexed by Reader(file_name_, reader_arguments...); where its indexed bytes end.
  template <class... ReaderArguments>
  std::int64_t index_file_(ReaderArguments&&... reader_arguments) {
    std::vector<DatabaseEntryIdentifier> identifiers;
    std::vector<std::streampos> positions;
    auto const reader =
        make_handle<Reader>(file_name_, std::forward<ReaderArguments>(reader_arguments)...);
    {
      detail::IndexedFile::Indexing const indexing(indexed_);
      reader->parse(identifiers, positions);
    }
    auto const size = indexed_.finish_indexing();
    if (identifiers.size() != positions.size()) {
      throw database_error("FlatFileDatabase: the index of " + file_name_ +
                           " has different numbers of identifiers and positions");
    }
    index_.reserve(positions.size());
    for (std::size_t k = 0; k < positions.size(); ++k) {
      std::streamoff const at = positions[k];
      if (at < 0) {
        throw database_error("FlatFileDatabase: the index of " + file_name_ +
                             " has a position before the start of the file");
      }
      if (at <= size) index_.add(identifiers[k].str(), static_cast<std::int64_t>(at));
    }
    return size;
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
  detail::EntryIndex index_;
  std::int64_t size_ = 0;           // where the indexed bytes end
  std::vector<std::int64_t> ends_;  // where each entry's bytes end; empty when in file order
  THandle<File> file_;
  mutable std::string text_;          // the bytes of the entry being read
  mutable std::istringstream input_;  // reads them
};

/// The database a format's make_database gives: the file the parameters name, indexed with
/// Reader(file_name, reader_arguments...) or by the index saved for the parameters'
/// saved_index key, reading its entries with the parameters' options.
template <class Reader, class File, class... ReaderArguments>
THandle<Database<CrystalStructureDatabaseEntry>> make_flat_file_database(
    FileFormat::OpenParameters const& parameters, ReaderArguments&&... reader_arguments) {
  auto const database = make_handle<FlatFileDatabase<CrystalStructureDatabaseEntry, Reader, File>>(
      SavedIndexKey{parameters.saved_index}, parameters.file_name,
      std::forward<ReaderArguments>(reader_arguments)...);
  database->set_read_options(parameters.read_options);
  return THandle<Database<CrystalStructureDatabaseEntry>>(database);
}

}  // namespace kora
