// The Python classes of entries and databases: Entry, the iterators over a database's
// entries (one at a time, or read ahead on several threads), Database with its index and the
// summaries that Database.to_pandas stands on, and open().

#include <pybind11/stl.h>

#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bindings.hpp"
#include "kora/io.hpp"

namespace kora_python {

namespace {

using kora::THandle;
using Match = kora::Database<Entry>::IdentifierMatch;

// A str from Python as bytes: lone surrogates (text that came from files as invalid UTF-8)
// go back to the bytes they stand for.
std::string bytes_of(py::handle s) {
  if (!PyUnicode_Check(s.ptr())) throw py::type_error("expected a str");
  PyObject* b = PyUnicode_AsEncodedString(s.ptr(), "utf-8", "surrogateescape");
  if (!b) throw py::error_already_set();
  return py::reinterpret_steal<py::bytes>(b).cast<std::string>();
}

// A file name as Python gives it back: undecodable bytes as surrogates.
py::object path_text(std::string const& name) {
  return py::module_::import("os").attr("fsdecode")(py::bytes(name));
}

// The entry's cell, unless it has none: formats without cells (MOL, SD, and Mol2 without
// crystal information) give the default cell, which no real crystal has.
bool has_cell(kora::CrystalMaker const* maker) {
  static kora::Cell const none;
  return maker && maker->cell().valid() && !(maker->cell() == none);
}

std::optional<kora::Cell> valid_cell(Entry const& entry) {
  THandle<kora::CrystalMaker> const maker = entry.crystal_maker();
  if (!has_cell(maker.get())) return std::nullopt;
  return maker->cell();
}

std::vector<Molecule> molecules_of(Entry const& entry) {
  std::vector<Molecule> molecules;
  THandle<kora::CrystalMaker> const maker = entry.crystal_maker();
  if (!maker) return molecules;
  std::string const identifier = entry.identifier().str();
  bool const cell = has_cell(maker.get());
  for (int i = 0; i < maker->nmolecules(); ++i)
    molecules.push_back({maker->molecule(i), identifier, cell});
  return molecules;
}

Molecule merged_molecule(Entry const& entry) {
  std::vector<Molecule> molecules = molecules_of(entry);
  if (molecules.size() == 1) return molecules.front();
  auto merged = kora::make_handle<kora::Molecule3d>();
  for (Molecule const& m : molecules)
    merged->add(*m.molecule);
  return {THandle<kora::Molecule>(merged), entry.identifier().str(),
          has_cell(entry.crystal_maker().get())};
}

// An open file: its entries by index or identifier. Reading an entry releases the GIL; the
// database itself is read by one thread at a time. Closing it lets go of the file; the entries
// read before stay usable.
class Database {
 public:
  Database(std::string path, std::string const& format, bool classic)
      : path_(std::move(path)),
        source_(std::make_shared<kora::Entries>(path_, open_options(format, classic))),
        format_(source_->format()) {}

  std::string const& path() const { return path_; }
  std::string const& format() const { return format_; }
  bool closed() const {
    std::lock_guard<std::mutex> const lock(mutex_);
    return !source_;
  }
  void close() {
    std::lock_guard<std::mutex> const lock(mutex_);
    source_.reset();
    by_identifier_.reset();
  }

  int size() const {
    std::lock_guard<std::mutex> const lock(mutex_);
    return open_entries_().size();
  }
  THandle<Entry> entry(int i) const {
    std::lock_guard<std::mutex> const lock(mutex_);
    return open_entries_().entry(i);
  }
  std::vector<std::string> identifiers() const {
    std::lock_guard<std::mutex> const lock(mutex_);
    kora::Entries const& entries = open_entries_();
    std::vector<std::string> ids;
    ids.reserve(std::size_t(entries.size()));
    for (int i = 0; i < entries.size(); ++i)
      ids.push_back(entries.identifier(i).str());
    return ids;
  }
  // The index of the first entry with this identifier; -1 when there is none.
  int find(std::string const& identifier) const {
    std::lock_guard<std::mutex> const lock(mutex_);
    kora::Entries const& entries = open_entries_();
    if (!by_identifier_) {
      by_identifier_.emplace();
      for (int i = entries.size() - 1; i >= 0; --i)
        (*by_identifier_)[entries.identifier(i).str()] = i;
    }
    auto const found = by_identifier_->find(identifier);
    return found == by_identifier_->end() ? -1 : found->second;
  }
  // The entries, for readers that keep them while they read; ValueError once closed.
  std::shared_ptr<kora::Entries const> shared_entries() const {
    std::lock_guard<std::mutex> const lock(mutex_);
    open_entries_();
    return source_;
  }
  std::pair<int, Match> nearest(std::string const& identifier) const {
    std::lock_guard<std::mutex> const lock(mutex_);
    Match match = Match::nearest_only;
    int const i = open_entries_().nearest(identifier, match);
    return {i, match};
  }

 private:
  static kora::OpenOptions open_options(std::string const& format, bool classic) {
    kora::OpenOptions options;
    options.format = format;
    options.read = classic ? kora::ReadOptions::classic_mode() : kora::ReadOptions::standard_mode();
    return options;
  }
  // The entries, with the mutex held; ValueError once closed, as Python's files do.
  kora::Entries const& open_entries_() const {
    if (!source_) throw py::value_error("I/O operation on a closed kora.Database");
    return *source_;
  }

  std::string path_;
  // Null once closed; shared with the parallel readers of its entries.
  std::shared_ptr<kora::Entries const> source_;
  std::string format_;
  mutable std::mutex mutex_;
  mutable std::optional<std::unordered_map<std::string, int>> by_identifier_;
};

EntryRef read_entry(Database const& db, int i) {
  py::gil_scoped_release const release;
  return {db.entry(i)};
}

// Iteration over a database's entries; keeps the database alive. Entries are read a batch at
// a time without the GIL: handing the GIL over for every small record would cost more than
// reading it, and threads reading other databases would wait for each other.
struct EntryIterator {
  static constexpr int batch = 64;

  py::object database;
  int next = 0;                      // the next entry to read from the database
  std::deque<THandle<Entry>> ready;  // read, not yet returned
  std::exception_ptr failure;        // of entry `next`, to raise after the ready ones

  EntryRef advance() {
    if (ready.empty()) {
      if (failure) {
        ++next;
        std::rethrow_exception(std::exchange(failure, nullptr));
      }
      Database const& db = database.cast<Database const&>();
      int const size = db.size();
      if (next >= size) throw py::stop_iteration();
      py::gil_scoped_release const release;
      for (int k = 0; k < batch && next < size; ++k) {
        try {
          ready.push_back(db.entry(next));
        } catch (...) {
          failure = std::current_exception();
          break;
        }
        ++next;
      }
    }
    if (ready.empty()) return advance();  // the batch began with a failure
    EntryRef entry{std::move(ready.front())};
    ready.pop_front();
    return entry;
  }
};

// Entries read ahead on several threads, in order, without the GIL. Holds the database (to
// tell when it is closed) and its entries (so that closing cannot pull them from under the
// threads).
struct ParallelIterator {
  py::object database;
  std::shared_ptr<kora::Entries const> entries;
  std::unique_ptr<kora::ReadAhead> reading;

  ParallelIterator(py::object db, std::vector<int> indices, int threads)
      : database(std::move(db)), entries(database.cast<Database const&>().shared_entries()) {
    kora::ReadAheadOptions options;
    options.threads = threads;
    py::gil_scoped_release const release;
    reading = std::make_unique<kora::ReadAhead>(*entries, std::move(indices), options);
  }

  EntryRef advance() {
    if (!reading) throw py::stop_iteration();
    if (database.cast<Database const&>().closed()) {
      stop();
      throw py::value_error("I/O operation on a closed kora.Database");
    }
    kora::EntryRead read;
    bool more = false;
    {
      py::gil_scoped_release const release;
      more = reading->next(read);
    }
    if (!more) {
      stop();
      throw py::stop_iteration();
    }
    if (read.error) std::rethrow_exception(read.error);
    return {std::move(read.entry)};
  }

  // The threads stop (without the GIL: they may be waiting for it nowhere, but joining takes
  // a while) and the entries are let go.
  void stop() {
    py::gil_scoped_release const release;
    reading.reset();
  }
};

// SD data items by name, lines joined by newlines; of two headers naming one item, the first
// in header order wins.
py::dict data_dict(kora::DataItems const& items) {
  py::dict data;
  for (auto const& [name, lines] : items) {
    py::str const key = text(name);
    if (data.contains(key)) continue;
    std::string value;
    for (std::size_t i = 0; i < lines.size(); ++i)
      value += (i ? "\n" : "") + lines[i];
    data[key] = text(value);
  }
  return data;
}

// The summaries of every entry of a database, read without the GIL, as Python tuples: what
// Database.to_pandas puts in its rows. The cell is the one Entry.cell gives.
py::list summaries(Database const& db) {
  struct Row {
    kora::Summary summary;
    std::optional<kora::Cell> cell;
  };
  std::vector<Row> rows;
  {
    py::gil_scoped_release const release;
    int const n = db.size();
    rows.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
      THandle<Entry> const entry = db.entry(i);
      rows.push_back({kora::summarise(i, *entry), valid_cell(*entry)});
    }
  }
  py::list out;
  for (Row const& row : rows) {
    kora::Summary const& s = row.summary;
    py::object cell = py::none();
    py::object symbol = py::none();
    py::object number = py::none();
    if (row.cell) {
      kora::Cell const& c = *row.cell;
      cell = py::make_tuple(c.a(), c.b(), c.c(), c.alpha().degrees(), c.beta().degrees(),
                            c.gamma().degrees());
      symbol = text(c.spacegroup().symbol());
      number = py::int_(c.spacegroup().number());
    }
    out.append(py::make_tuple(text(s.identifier), s.molecules, s.atoms, s.bonds, text(s.formula),
                              s.charge, cell, symbol, number, data_dict(s.data)));
  }
  return out;
}

}  // namespace

void bind_match(py::module_& m) {
  py::enum_<Match>(m, "Match", "How Database.nearest matched an identifier.")
      .value("EXACT", Match::exact)
      .value("EQUAL_IGNORING_CASE", Match::equal_ignoring_case)
      .value("NEAREST", Match::nearest_only);
}

void bind_database(py::module_& m) {
  py::class_<EntryRef>(m, "Entry", "One structure of a file.")
      .def_property_readonly(
          "identifier", [](EntryRef const& e) { return text(e.entry->identifier().str()); },
          "The entry's name: an SD record's first line, a Mol2 molecule's name, a PDB ID code, "
          "a RES file's title.")
      .def_property_readonly(
          "molecules", [](EntryRef const& e) { return molecules_of(*e.entry); },
          "The molecules, each a kora.Molecule: those of a crystal structure as the file "
          "gives them, completed by symmetry where the file gives part of one.")
      .def_property_readonly(
          "molecule", [](EntryRef const& e) { return merged_molecule(*e.entry); },
          "All the molecules as one.")
      .def_property_readonly(
          "cell", [](EntryRef const& e) { return valid_cell(*e.entry); },
          "The unit cell; None when there is none.")
      .def_property_readonly(
          "peaks",
          [](EntryRef const& e) {
            py::list peaks;
            THandle<kora::CrystalMaker> const maker = e.entry->crystal_maker();
            if (!maker) return peaks;
            for (kora::DensityPeak const& p : maker->details().density_peaks) {
              py::object const height =
                  p.has_height ? py::object(py::float_(p.height)) : py::none();
              peaks.append(py::make_tuple(
                  text(p.label), py::make_tuple(p.fractional[0], p.fractional[1], p.fractional[2]),
                  height));
            }
            return peaks;
          },
          "The difference-map peaks of a SHELX file (Q1, Q2, ...), which are not atoms: "
          "(label, fractional (x, y, z), height in electrons per cubic angstrom or None), in "
          "file order. Empty for other formats and in classic reading, where the peaks are "
          "atoms.")
      .def_property_readonly(
          "spacegroup",
          [](EntryRef const& e) -> std::optional<kora::Spacegroup> {
            std::optional<kora::Cell> const cell = valid_cell(*e.entry);
            if (!cell) return std::nullopt;
            return cell->spacegroup();
          },
          "The space group; None when there is no cell.")
      .def_property_readonly(
          "data",
          [](EntryRef const& e) {
            std::optional<kora::DataItems> const items = kora::sd_data(*e.entry);
            return items ? data_dict(*items) : py::dict();
          },
          "The data items of an SD record, by name (lines joined by newlines), in the order "
          "of their header lines as text. Items are kept by header line: a header line "
          "given twice keeps its later value; of two headers naming one item (\"> <A>\", "
          "\"> 25 <A>\"), the first in that order wins. Empty for other formats.")
      .def("__repr__", [](EntryRef const& e) {
        return py::str("<kora.Entry {}>").format(text(e.entry->identifier().str()));
      });

  py::class_<EntryIterator>(m, "EntryIterator")
      .def("__iter__", [](EntryIterator& it) -> EntryIterator& { return it; })
      .def("__next__", &EntryIterator::advance);

  py::class_<ParallelIterator>(m, "ParallelIterator")
      .def("__iter__", [](ParallelIterator& it) -> ParallelIterator& { return it; })
      .def("__next__", &ParallelIterator::advance)
      .def_property_readonly(
          "threads",
          [](ParallelIterator const& it) { return it.reading ? it.reading->threads() : 0; },
          "The threads reading (0 once the iteration has ended).");

  py::class_<Database>(m, "Database",
                       "The entries of a file, read on demand: db[i], db['ID'], len(db), "
                       "iteration.")
      .def_property_readonly(
          "path", [](Database const& db) { return path_text(db.path()); }, "The file's name.")
      .def_property_readonly("format", &Database::format, "mol2, sdf, pdb or res.")
      .def("__len__", &Database::size)
      .def(
          "__getitem__",
          [](Database const& db, py::int_ const& index) {
            int overflow = 0;
            long long i = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
            long long const n = db.size();
            if (i < 0) i += n;
            if (overflow != 0 || i < 0 || i >= n) throw py::index_error("entry index out of range");
            return read_entry(db, static_cast<int>(i));
          },
          py::arg("index"))
      .def(
          "__getitem__",
          [](Database const& db, py::str const& identifier) {
            int const i = db.find(bytes_of(identifier));
            if (i < 0) {
              PyErr_SetObject(PyExc_KeyError, identifier.ptr());
              throw py::error_already_set();
            }
            return read_entry(db, i);
          },
          py::arg("identifier"))
      .def("__contains__",
           [](Database const& db, py::object const& identifier) {
             return PyUnicode_Check(identifier.ptr()) && db.find(bytes_of(identifier)) >= 0;
           })
      .def("__iter__",
           [](py::object self) {
             return EntryIterator{std::move(self), 0, {}, {}};
           })
      .def(
          "read",
          [](py::object self, std::optional<std::vector<int>> indices, int threads) {
            Database const& db = self.cast<Database const&>();
            int const n = db.size();
            std::vector<int> chosen;
            if (indices) {
              chosen = std::move(*indices);
              for (int& i : chosen) {
                if (i < 0) i += n;
                if (i < 0 || i >= n) throw py::index_error("entry index out of range");
              }
            } else {
              chosen.resize(std::size_t(n));
              for (int i = 0; i < n; ++i)
                chosen[std::size_t(i)] = i;
            }
            if (threads < 0) throw py::value_error("threads must be 0 (every core) or more");
            return ParallelIterator(std::move(self), std::move(chosen), threads);
          },
          py::arg("indices") = py::none(), py::arg("threads") = 0,
          "An iterator over the entries (every one, or those of the indices given, in that "
          "order) read ahead on several threads without the GIL (threads=0: one per core; 1: "
          "no thread is started). The entries and failures are those of reading one at a "
          "time, in the same order. Closing the database ends it with ValueError.")
      .def(
          "save_index",
          [](Database const& db) {
            std::shared_ptr<kora::Entries const> const entries = db.shared_entries();
            std::string saved;
            {
              py::gil_scoped_release const release;
              saved = entries->save_index();
            }
            return path_text(saved);
          },
          "Saves the index beside the file (its name followed by .kora-index) and gives that "
          "file's name: opening the same file with the same options reads it instead of "
          "indexing, while the file is unchanged (a gzip file's index keeps its decompression "
          "checkpoints). Standard input raises kora.DatabaseError.")
      .def_property_readonly(
          "identifiers",
          [](Database const& db) {
            py::list ids;
            for (std::string const& id : db.identifiers())
              ids.append(text(id));
            return ids;
          },
          "The entries' identifiers, in file order.")
      .def(
          "nearest",
          [](Database const& db, py::str const& identifier) {
            return db.nearest(bytes_of(identifier));
          },
          py::arg("identifier"),
          "(index, kora.Match): the entry with this identifier, else the first equal to it "
          "ignoring case, else the smallest identifier above it, else the largest below it; "
          "(-1, Match.NEAREST) when the database is empty.")
      .def("close", &Database::close,
           "Lets go of the file. Entries read before stay usable; reading more raises "
           "ValueError. Closing twice does nothing.")
      .def_property_readonly("closed", &Database::closed, "Whether close() was called.")
      .def("__enter__", [](py::object self) { return self; })
      .def(
          "__exit__", [](Database& db, py::args const&) { db.close(); },
          "Closes the database at the end of a with block.")
      .def("_summaries", &summaries,
           "Per entry: (identifier, molecules, atoms, bonds, formula, charge, cell (a, b, c, "
           "alpha, beta, gamma) or None, space group symbol or None, space group number or "
           "None, {data item name: value}). Database.to_pandas stands on it.")
      .def("__repr__", [](Database const& db) {
        if (db.closed()) {
          return py::str("<kora.Database {} ({}, closed)>")
              .format(path_text(db.path()), db.format());
        }
        return py::str("<kora.Database {} ({}, {} entries)>")
            .format(path_text(db.path()), db.format(), db.size());
      });

  m.def(
      "open",
      [](py::handle path, std::optional<std::string> const& format, bool classic) {
        std::string const name = file_name(path);
        py::gil_scoped_release const release;
        return std::make_unique<Database>(name, format.value_or(""), classic);
      },
      py::arg("path"), py::arg("format") = py::none(), py::arg("classic") = false,
      "Opens a file as a database of its entries. The format is found from the file unless "
      "given (mol2; sdf, sd, mol, mdl; pdb, ent; res, ins). Entries are read following each "
      "format's public conventions; classic=True reads as the library's format classes do by "
      "default. Raises FileNotFoundError, "
      "ValueError for an unknown format, kora.DatabaseError when the file cannot be indexed.");
}

}  // namespace kora_python
