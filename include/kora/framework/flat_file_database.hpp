#pragma once

// A read-only database over one multi-entry text file: indexed once when it is built, then
// read one entry at a time by seeking to the entry and reading it with the format's file
// object.

#include <exception>
#include <fstream>
#include <ios>
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
};

template <class Entry, class Reader, class File>
class FlatFileDatabase : public Database<Entry>, public FlatFileDatabaseIndex {
 public:
  // Indexes the file with Reader(file_name, reader_arguments...); its errors pass through.
  template <class... ReaderArguments>
  explicit FlatFileDatabase(std::string const& file_name, ReaderArguments&&... reader_arguments)
      : file_name_(file_name), file_(make_handle<File>()) {
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

  THandle<Entry> entry(int i) const override {
    std::size_t const k = checked_(i);
    std::ifstream in(file_name_, std::ios::binary);
    if (!in) throw database_error("FlatFileDatabase::entry(): couldn't open file");
    try {
      file_->clear();
      in.seekg(positions_[k]);
      file_->read(in);
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
  std::vector<DatabaseEntryIdentifier> identifiers_;
  std::vector<std::streampos> positions_;
  THandle<File> file_;
};

}  // namespace kora
