#pragma once

/// \file
/// Read-only databases of crystal-structure entries.

#include <stdexcept>
#include <string>

#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/date.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

/// Every failure of a database.
class database_error : public std::runtime_error {
 public:
  explicit database_error(std::string const& message) : std::runtime_error(message) {}
};

template <class Entry>
class Database {
 public:
  enum IdentifierMatch { nearest_only = 0, equal_ignoring_case = 1, exact = 2 };

  virtual ~Database() = default;

  virtual bool has_expiry_date() const { return false; }
  virtual Date expiry_date() const {
    throw database_error("Database::expiry_date: no expiry date available");
  }
  virtual DatabaseEntryIdentifier identifier(int i) const = 0;
  virtual bool identifier_exists(DatabaseEntryIdentifier const& id) const = 0;
  /// The entry whose identifier is id (match exact), else the first equal to it ignoring
  /// case (match equal_ignoring_case), else the smallest identifier above it ignoring case,
  /// else the largest below it (match nearest_only); -1 for an empty database.
  virtual int nearest_entry(DatabaseEntryIdentifier const& id, IdentifierMatch& match) const;
  virtual int index(DatabaseEntryIdentifier const& id) const = 0;
  virtual int size() const = 0;
  virtual THandle<Entry> entry(int i) const = 0;
  virtual THandle<Entry> entry(DatabaseEntryIdentifier const& id) const = 0;
  virtual bool writable() const { return false; }
  virtual void append(THandle<Entry>) {
    throw database_error("Database::append: database is not opened for writing");
  }
  virtual void replace(THandle<Entry>) {
    throw database_error("Database::replace: database is not opened for writing");
  }
  virtual void remove(DatabaseEntryIdentifier const&) {
    throw database_error("Database::remove: database is not opened for writing");
  }
  virtual void flush() = 0;
  virtual DatabaseEntryIdentifier normalise_identifier(DatabaseEntryIdentifier const& id) const {
    return id;
  }
  virtual int identifier_maximum_length() const { return DatabaseEntryIdentifier::maximum_length_; }
};

template <class Entry>
int Database<Entry>::nearest_entry(DatabaseEntryIdentifier const& id,
                                   IdentifierMatch& match) const {
  static CaseInsensitiveStringLess const case_insensitive_string_less;
  match = nearest_only;
  int equal = -1;
  int above = -1;
  int below = -1;
  DatabaseEntryIdentifier above_id;
  DatabaseEntryIdentifier below_id;
  int const n = size();
  for (int i = 0; i < n; ++i) {
    DatabaseEntryIdentifier const e = identifier(i);
    if (case_insensitive_string_less(id, e)) {
      if (above < 0 || case_insensitive_string_less(e, above_id)) {
        above = i;
        above_id = e;
      }
    } else if (case_insensitive_string_less(e, id)) {
      if (below < 0 || case_insensitive_string_less(below_id, e)) {
        below = i;
        below_id = e;
      }
    } else if (e == id) {
      match = exact;
      return i;
    } else if (equal < 0) {
      equal = i;
    }
  }
  if (equal >= 0) {
    match = equal_ignoring_case;
    return equal;
  }
  return above >= 0 ? above : below;
}

}  // namespace kora
