#pragma once

// A read-only database over one multi-entry text file: indexed once when it is built, then
// read one entry at a time by seeking to the entry and reading it with the format's file
// object.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <fstream>
#include <ios>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/framework/database.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

// The entry index of a format: finds where each entry of a file starts and what it is
// called.
class FlatFileDatabaseReader {
 public:
  explicit FlatFileDatabaseReader(std::string file_name) : file_name_(std::move(file_name)) {}
  virtual ~FlatFileDatabaseReader() = default;

  std::string const& file_name() const { return file_name_; }

  // Appends one identifier and the stream position where the entry starts, per entry.
  virtual void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                     std::vector<std::streampos>& positions) const = 0;
  // The identifier of an entry that names none: "ENTRY" followed by the number ("ENTRY3").
  virtual DatabaseEntryIdentifier generate_identifier_from_index(int number) const;

 private:
  std::string file_name_;
};

// What every flat-file database tells of its file, whatever its entry, reader and file
// types: reached from a database handle with handle_dynamic_cast.
class FlatFileDatabaseIndex {
 public:
  virtual ~FlatFileDatabaseIndex() = default;
  virtual std::string const& file_name() const = 0;
  // Where entry i starts in the file; database_error outside the index.
  virtual std::streampos position(int i) const = 0;
  // How later entries are read (classic unless set).
  virtual void set_read_options(ReadOptions const& options) = 0;
  virtual ReadOptions const& read_options() const = 0;
};

// What a file was when it was examined: its kind, size, last modification time and identity
// (device and inode). A database compares the file with the state it had when it was
// indexed before every read, since the positions of its entries hold only for that file.
struct FileState {
  enum Kind { missing, regular, other };  // missing: absent or cannot be examined

  Kind kind = missing;
  std::uintmax_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since the epoch
  std::uintmax_t device = 0;
  std::uintmax_t inode = 0;

  // The state of the file a name leads to (symbolic links are followed).
  static FileState of(std::string const& file_name) noexcept;
  bool operator==(FileState const&) const = default;
};

namespace detail {

// Byte ranges of a file, read through one descriptor opened at the first read and kept open.
class FileBytes {
 public:
  explicit FileBytes(std::string file_name) : file_name_(std::move(file_name)) {}
  ~FileBytes();
  FileBytes(FileBytes const&) = delete;
  FileBytes& operator=(FileBytes const&) = delete;

  // Bytes [begin, end) of the file into `text`. Failure when the file cannot be opened;
  // short when it ends before `end`.
  enum Result { complete, failure, short_read };
  Result read(std::int64_t begin, std::int64_t end, std::string& text) const;

 private:
  std::string file_name_;
  mutable int descriptor_ = -1;
};

}  // namespace detail

// Reading is done with one file object per database: a database may be read from one thread
// at a time. Several databases over the same file may be read from different threads.
template <class Entry, class Reader, class File>
class FlatFileDatabase : public Database<Entry>, public FlatFileDatabaseIndex {
 public:
  // Indexes the file with Reader(file_name, reader_arguments...); its errors pass through. A
  // name that leads to anything but a regular file (a directory, a device, a pipe) throws
  // database_error: entries are read by seeking.
  template <class... ReaderArguments>
  explicit FlatFileDatabase(std::string const& file_name, ReaderArguments&&... reader_arguments)
      : file_name_(file_name), state_(FileState::of(file_name)), file_(make_handle<File>()) {
    if (state_.kind == FileState::other) {
      throw database_error("FlatFileDatabase: " + file_name + " is not a regular file");
    }
    auto const reader =
        make_handle<Reader>(file_name, std::forward<ReaderArguments>(reader_arguments)...);
    reader->parse(identifiers_, positions_);
    if (identifiers_.size() != positions_.size()) {
      throw database_error("FlatFileDatabase: the index of " + file_name +
                           " has different numbers of identifiers and positions");
    }
  }

  std::string const& file_name() const override { return file_name_; }
  std::streampos position(int i) const override { return positions_.at(checked_(i)); }
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

  // Entry i, read from the file. The file must be as it was when it was indexed (same size,
  // modification time and identity): a file rewritten, truncated, extended or replaced since
  // then throws database_error rather than giving whatever now stands at the old position.
  //
  // The entry's bytes (up to the next entry's start) are read in one piece into memory and
  // parsed from there.
  THandle<Entry> entry(int i) const override {
    std::size_t const k = checked_(i);
    FileState const now = FileState::of(file_name_);
    if (now.kind == FileState::missing) {
      throw database_error("FlatFileDatabase::entry(): couldn't open file");
    }
    auto const changed = [&] {
      return database_error("FlatFileDatabase::entry: couldn't retrieve entry " +
                            std::to_string(i) + ": " + file_name_ +
                            " has changed since it was indexed");
    };
    if (now != state_) throw changed();
    auto const begin = static_cast<std::int64_t>(std::streamoff(positions_[k]));
    auto const end = k + 1 < positions_.size()
                         ? static_cast<std::int64_t>(std::streamoff(positions_[k + 1]))
                         : static_cast<std::int64_t>(state_.size);
    switch (bytes_.read(begin, std::max(begin, end), text_)) {
      case detail::FileBytes::failure:
        throw database_error("FlatFileDatabase::entry(): couldn't open file");
      case detail::FileBytes::short_read:
        throw changed();
      case detail::FileBytes::complete:
        break;
    }
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
  // An index outside the list is refused before anything is read.
  std::size_t checked_(int i) const {
    if (i < 0 || i >= size()) {
      throw database_error("FlatFileDatabase::entry: no entry " + std::to_string(i) + " in " +
                           file_name_ + ", which has " + std::to_string(size()) + " entries");
    }
    return static_cast<std::size_t>(i);
  }

  std::string file_name_;
  FileState state_;  // taken before indexing, so a change during indexing is noticed too
  std::vector<DatabaseEntryIdentifier> identifiers_;
  std::vector<std::streampos> positions_;
  THandle<File> file_;
  detail::FileBytes bytes_{file_name_};
  mutable std::string text_;          // the bytes of the entry being read
  mutable std::istringstream input_;  // reads them
};

}  // namespace kora
