// The Python module `kora`: files opened as databases of entries; entries, molecules, atoms,
// bonds, cells and space groups; writing entries and molecules in any writeable format.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <deque>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/io.hpp"
#include "kora/kernel/molecule.hpp"

namespace py = pybind11;

namespace {

using kora::THandle;
using Entry = kora::CrystalStructureDatabaseEntry;
using Match = kora::Database<Entry>::IdentifierMatch;

// Text from files may be any bytes: invalid UTF-8 comes through as lone surrogates, so that
// writing it back with the same error handler gives the bytes that were read.
py::str text(std::string const& s) {
  PyObject* o =
      PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogateescape");
  if (!o) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(o);
}

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

// A str, bytes or os.PathLike as a file name in the file system's encoding.
std::string file_name(py::handle path) {
  py::module_ const os = py::module_::import("os");
  return os.attr("fsencode")(os.attr("fspath")(path)).cast<std::string>();
}

double nan() {
  return std::numeric_limits<double>::quiet_NaN();
}

struct Molecule {
  THandle<kora::Molecule> molecule;
  std::string identifier;  // of the entry it came from
  bool has_cell;           // fractional coordinates mean something only in a real cell
};

struct Atom {
  THandle<kora::Atom> atom;
  int index;
  bool has_cell;
};

struct Bond {
  int atom1;
  int atom2;
  kora::BondType type;
};

// An atom's Cartesian or fractional position as a tuple; None without a position, and for
// fractional coordinates without a cell.
py::object position(Atom const& a, bool fractional) {
  THandle<kora::Site> const site = a.atom->site();
  if (!site || (fractional && !a.has_cell)) return py::none();
  kora::Point const& p = fractional ? site->fractional() : site->orthogonal();
  return py::make_tuple(p[0], p[1], p[2]);
}

// Entries as Python sees them (the model's entries are abstract and shared).
struct EntryRef {
  THandle<Entry> entry;
};

struct Format {
  std::string name;
  std::string description;
  std::vector<std::string> extensions;
  bool writeable;
};

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

// Cartesian (or fractional) positions, one row per atom; NaN where there is none.
py::array_t<double> positions(kora::Molecule const& molecule, bool fractional, bool has_cell) {
  py::ssize_t const n = molecule.natoms();
  py::array_t<double> array({n, py::ssize_t(3)});
  auto out = array.mutable_unchecked<2>();
  for (py::ssize_t i = 0; i < n; ++i) {
    THandle<kora::Atom> const atom = molecule.atom(static_cast<int>(i));
    THandle<kora::Site> const site = atom->site();
    for (py::ssize_t a = 0; a < 3; ++a) {
      double v = nan();
      if (site && (has_cell || !fractional))
        v = fractional ? site->fractional()[std::size_t(a)] : site->orthogonal()[std::size_t(a)];
      out(i, a) = v;
    }
  }
  return array;
}

template <class T>
py::array_t<double> matrix(kora::Matrix<T, 3, 3> const& m) {
  py::array_t<double> array({py::ssize_t(3), py::ssize_t(3)});
  auto out = array.mutable_unchecked<2>();
  for (py::ssize_t i = 0; i < 3; ++i)
    for (py::ssize_t j = 0; j < 3; ++j)
      out(i, j) = m(std::size_t(i), std::size_t(j));
  return array;
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

// SD data items by name, lines joined by newlines; the first item of a repeated name wins.
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

// The output format: the one given, else the one of the file name's extension.
std::string output_format(std::optional<std::string> const& format, std::string const& path) {
  std::string const name =
      format ? kora::canonical_format(*format) : kora::format_of_extension(path);
  if (name.empty()) {
    throw py::value_error(format ? "unknown format '" + *format + "'"
                                 : "cannot tell the format from '" + path + "': give format=");
  }
  return name;
}

// An entry, or a molecule made into an entry of its own.
THandle<Entry> as_entry(py::handle item) {
  if (py::isinstance<EntryRef>(item)) return item.cast<EntryRef const&>().entry;
  if (py::isinstance<Molecule>(item)) {
    Molecule const& m = item.cast<Molecule const&>();
    auto molecules = kora::make_handle<kora::MoleculeList>(1, m.molecule);
    auto maker = kora::make_handle<kora::CrystalMaker>(kora::Cell(), molecules, nullptr, nullptr);
    return THandle<Entry>(kora::make_handle<kora::CrystalStructureImmediateDatabaseEntry>(
        kora::DatabaseEntryIdentifier(m.identifier), maker));
  }
  throw py::type_error("expected a kora.Entry or a kora.Molecule, not " +
                       std::string(py::str(py::type::of(item).attr("__name__"))));
}

std::vector<THandle<Entry>> as_entries(py::handle items) {
  std::vector<THandle<Entry>> entries;
  if (py::isinstance<EntryRef>(items) || py::isinstance<Molecule>(items)) {
    entries.push_back(as_entry(items));
  } else {
    for (py::handle item : py::iter(items))
      entries.push_back(as_entry(item));
  }
  return entries;
}

kora::WriteOptions write_options(bool v3000, bool classic) {
  kora::WriteOptions options =
      classic ? kora::WriteOptions::classic_mode() : kora::WriteOptions::standard_mode();
  options.v3000 = v3000;
  return options;
}

void write_all(std::vector<THandle<Entry>> const& entries, kora::EntryWriter& writer) {
  for (THandle<Entry> const& entry : entries)
    writer.write(*entry);
  writer.close();
}

int write_file(py::handle path, py::handle items, std::optional<std::string> const& format,
               bool v3000, bool classic) {
  std::string const target = file_name(path);
  std::string const name = output_format(format, target);
  std::vector<THandle<Entry>> const entries = as_entries(items);
  if (name == "res" && entries.size() > 1)
    throw py::value_error("a RES file holds one structure, not " + std::to_string(entries.size()));
  // Failures to open or write the file (kora::output_error) arrive as OSError.
  py::gil_scoped_release const release;
  kora::EntryWriter writer(target, name, write_options(v3000, classic));
  write_all(entries, writer);
  return static_cast<int>(entries.size());
}

py::str to_string(py::handle item, std::string const& format, bool v3000, bool classic) {
  std::string const name = kora::canonical_format(format);
  if (name.empty()) throw py::value_error("unknown format '" + format + "'");
  std::ostringstream out;
  kora::EntryWriter writer(out, name, write_options(v3000, classic));
  write_all({as_entry(item)}, writer);
  return text(out.str());
}

// Sets a Python exception with the message of a library one: file names and text in messages
// may be any bytes.
void raise(PyObject* type, std::exception const& e) {
  std::string const message = e.what();
  PyObject* o = PyUnicode_DecodeUTF8(message.data(), static_cast<Py_ssize_t>(message.size()),
                                     "backslashreplace");
  if (!o) {
    PyErr_SetString(type, "(message not readable)");
    return;
  }
  PyErr_SetObject(type, o);
  Py_DECREF(o);
}

}  // namespace

PYBIND11_MODULE(_kora, m) {
  // The extension is kora._kora, re-exported by the package kora: its classes, functions and
  // exception call themselves kora.X (reprs, pickling paths, help()) as they did when the
  // extension was the module kora. pybind11 names them after the module's __name__ at the
  // time they are defined.
  m.attr("__name__") = "kora";
  m.doc() =
      "Read and write Tripos Mol2, MDL MOL/SD, PDB and SHELX RES files.\n\n"
      "kora.open(path) gives a read-only database of the file's entries; each entry holds\n"
      "molecules (atoms, bonds, coordinates) and, for crystal structures, a cell and space\n"
      "group. kora.write and kora.to_string write entries and molecules in any format.";
  m.attr("__version__") = KORA_VERSION;

  static py::exception<kora::database_error> database_error(m, "DatabaseError", PyExc_RuntimeError);
  database_error.doc() = "A database could not be indexed or an entry could not be read.";
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (py::builtin_exception const&) {
      throw;  // pybind11's own (IndexError, KeyError, ...), for its translator
    } catch (py::error_already_set const&) {
      throw;
    } catch (kora::database_error const& e) {
      raise(database_error.ptr(), e);
    } catch (kora::missing_file const& e) {
      raise(PyExc_FileNotFoundError, e);
    } catch (kora::unknown_format const& e) {
      raise(PyExc_ValueError, e);
    } catch (kora::output_error const& e) {
      raise(PyExc_OSError, e);
    } catch (kora::io_error const& e) {
      raise(database_error.ptr(), e);
    } catch (std::invalid_argument const& e) {
      raise(PyExc_ValueError, e);
    } catch (std::out_of_range const& e) {
      raise(PyExc_IndexError, e);
    } catch (std::exception const& e) {
      raise(PyExc_RuntimeError, e);
    }
  });

  py::enum_<kora::BondType>(m, "BondType", "The order of a bond.")
      .value("UNKNOWN", kora::unknown_bond)
      .value("SINGLE", kora::single_bond)
      .value("DOUBLE", kora::double_bond)
      .value("TRIPLE", kora::triple_bond)
      .value("QUADRUPLE", kora::quadruple_bond)
      .value("AROMATIC", kora::aromatic_bond)
      .value("POLYMERIC", kora::polymeric_bond)
      .value("DELOCALISED", kora::delocalised_bond)
      .value("PI", kora::pi_bond);

  py::enum_<Match>(m, "Match", "How Database.nearest matched an identifier.")
      .value("EXACT", Match::exact)
      .value("EQUAL_IGNORING_CASE", Match::equal_ignoring_case)
      .value("NEAREST", Match::nearest_only);

  py::class_<Format>(m, "Format", "A file format kora reads.")
      .def_readonly("name", &Format::name, "Short name: mol2, sdf, pdb or res.")
      .def_readonly("description", &Format::description)
      .def_readonly("extensions", &Format::extensions, "File name extensions, without a dot.")
      .def_readonly("writeable", &Format::writeable, "Whether kora.write writes the format.")
      .def("__repr__", [](Format const& f) { return "<kora.Format " + f.name + ">"; });

  py::class_<kora::Spacegroup>(m, "SpaceGroup", "A space group and its symmetry operators.")
      .def_property_readonly(
          "symbol", [](kora::Spacegroup const& s) { return text(s.symbol()); },
          "The Hermann-Mauguin symbol, as the file gave it or as kora names the group.")
      .def_property_readonly(
          "setting", [](kora::Spacegroup const& s) { return text(s.setting_symbol()); },
          "The symbol that names the setting, origin choice and axes included ('I 41/a:2', "
          "'R 3:H'); empty for operators that are no tabulated setting.")
      .def_property_readonly("number", &kora::Spacegroup::number,
                             "The number in International Tables (1 to 230); 0 when unknown.")
      .def_property_readonly(
          "operators",
          [](kora::Spacegroup const& s) {
            std::vector<std::string> ops;
            for (kora::CrystalSymmetryOperator const& op : s.operators())
              ops.push_back(op.to_string());
            return ops;
          },
          "The operators as strings such as 'x,y,z' or '-x,y+1/2,-z'.")
      .def("__len__", &kora::Spacegroup::order)
      .def("__repr__", [](kora::Spacegroup const& s) {
        return "<kora.SpaceGroup " + s.symbol() + " (" + std::to_string(s.number()) + ")>";
      });

  py::class_<kora::Cell>(m, "Cell", "A unit cell: lengths in angstroms, angles in degrees.")
      .def_property_readonly("a", &kora::Cell::a, "Length of a, in angstroms.")
      .def_property_readonly("b", &kora::Cell::b, "Length of b, in angstroms.")
      .def_property_readonly("c", &kora::Cell::c, "Length of c, in angstroms.")
      .def_property_readonly(
          "alpha", [](kora::Cell const& c) { return c.alpha().degrees(); }, "In degrees.")
      .def_property_readonly(
          "beta", [](kora::Cell const& c) { return c.beta().degrees(); }, "In degrees.")
      .def_property_readonly(
          "gamma", [](kora::Cell const& c) { return c.gamma().degrees(); }, "In degrees.")
      .def_property_readonly(
          "lengths", [](kora::Cell const& c) { return py::make_tuple(c.a(), c.b(), c.c()); },
          "(a, b, c).")
      .def_property_readonly(
          "angles",
          [](kora::Cell const& c) {
            return py::make_tuple(c.alpha().degrees(), c.beta().degrees(), c.gamma().degrees());
          },
          "(alpha, beta, gamma).")
      .def_property_readonly("volume", &kora::Cell::volume, "In cubic angstroms.")
      .def_property_readonly(
          "fractional_to_orthogonal",
          [](kora::Cell const& c) { return matrix(c.fractional_to_orthogonal()); },
          "The 3x3 matrix taking fractional to Cartesian coordinates (columns a, b, c).")
      .def_property_readonly(
          "orthogonal_to_fractional",
          [](kora::Cell const& c) { return matrix(c.orthogonal_to_fractional()); },
          "The inverse of fractional_to_orthogonal.")
      .def_property_readonly("spacegroup", &kora::Cell::spacegroup, "The cell's space group.")
      .def("__repr__", [](kora::Cell const& c) {
        std::ostringstream s;
        s << "<kora.Cell " << c.a() << ' ' << c.b() << ' ' << c.c() << ' ' << c.alpha().degrees()
          << ' ' << c.beta().degrees() << ' ' << c.gamma().degrees() << '>';
        return s.str();
      });

  py::class_<Atom>(m, "Atom", "An atom of a molecule.")
      .def_readonly("index", &Atom::index, "Its place in the molecule's atoms, from 0.")
      .def_property_readonly(
          "label", [](Atom const& a) { return text(a.atom->label()); },
          "The atom's name in the file.")
      .def_property_readonly(
          "element",
          [](Atom const& a) {
            kora::Element const e = a.atom->element();
            return e.is_set() ? e.symbol() : std::string();
          },
          "The element symbol; '' when unknown.")
      .def_property_readonly(
          "atomic_number",
          [](Atom const& a) {
            kora::Element const e = a.atom->element();
            return e.is_set() ? e.atomic_number() : 0;
          },
          "0 when the element is unknown.")
      .def_property_readonly(
          "formal_charge", [](Atom const& a) { return a.atom->formal_charge(); },
          "In units of the elementary charge.")
      .def_property_readonly(
          "mass_number",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->mass_number : 0;
          },
          "The isotope's mass number as the file gave it (2 for deuterium); 0 for the natural "
          "mixture.")
      .def_property_readonly(
          "partial_charge",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_partial_charge) return py::none();
            return py::float_(d->partial_charge);
          },
          "The partial charge the file gave (Mol2); None when it gave none.")
      .def_property_readonly(
          "chain",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->chain : std::string();
          },
          "The chain identifier the file gave (PDB); '' when none.")
      .def_property_readonly(
          "residue_name",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->residue_name : std::string();
          },
          "The name of the atom's residue ('ALA', 'HOH'); '' when it is in none.")
      .def_property_readonly(
          "residue_number",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || d->residue_name.empty()) return py::none();
            return py::int_(d->residue_number);
          },
          "The sequence number of the atom's residue; None when it is in none.")
      .def_property_readonly(
          "insertion_code",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->insertion_code != ' ' ? std::string(1, d->insertion_code)
                                                 : std::string();
          },
          "The residue's insertion code (PDB); '' when none.")
      .def_property_readonly(
          "hetero",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->hetero;
          },
          "Whether the atom was read from a HETATM record (PDB).")
      .def_property_readonly(
          "b_factor",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_b_factor) return py::none();
            return py::float_(d->b_factor);
          },
          "The isotropic temperature factor the file gave (PDB), in square angstroms; None "
          "when it gave none.")
      .def_property_readonly(
          "file_position",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_file_position) return py::none();
            return py::make_tuple(d->file_position[0], d->file_position[1], d->file_position[2]);
          },
          "The fractional position the file gave the atom (SHELX), which an image made by "
          "symmetry to complete a molecule shares with its atom; None for other formats.")
      .def_property_readonly(
          "alt_loc",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->alt_loc != ' ' ? std::string(1, d->alt_loc) : std::string();
          },
          "The alternate location indicator (PDB); '' when none.")
      .def_property_readonly(
          "model",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->model : 0;
          },
          "The MODEL number the atom was read under (PDB); 0 when the file had none.")
      .def_property_readonly(
          "part",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->part : 0;
          },
          "The disorder part (SHELX PART); 0 for the common part.")
      .def_property_readonly(
          "coordinates", [](Atom const& a) { return position(a, false); },
          "Cartesian coordinates in angstroms; None when the atom has no position.")
      .def_property_readonly(
          "fractional", [](Atom const& a) { return position(a, true); },
          "Fractional coordinates; None when the atom has no position or the entry no cell.")
      .def_property_readonly(
          "occupancy",
          [](Atom const& a) -> py::object {
            THandle<kora::Site> const site = a.atom->site();
            if (!site) return py::none();
            return py::float_(site->occupancy().value());
          },
          "None when the atom has no position.")
      .def_property_readonly(
          "residue",
          [](Atom const& a) -> py::object {
            kora::ProteinAtom const* protein = a.atom->protein_atom();
            if (!protein) return py::none();
            return text(protein->residue_label());
          },
          "The residue label of a protein atom (as PDB files give them); None otherwise.")
      .def("__repr__", [](Atom const& a) {
        return py::str("<kora.Atom {} {}>").format(text(a.atom->label()), a.index);
      });

  py::class_<Bond>(m, "Bond", "A bond between two atoms of a molecule.")
      .def_property_readonly(
          "atoms", [](Bond const& b) { return std::make_pair(b.atom1, b.atom2); },
          "The indexes of its two atoms in the molecule.")
      .def_readonly("type", &Bond::type, "A kora.BondType.")
      .def("__repr__", [](Bond const& b) {
        return py::str("<kora.Bond {}-{} {}>").format(b.atom1, b.atom2, py::cast(b.type));
      });

  py::class_<Molecule>(m, "Molecule", "Atoms and the bonds between them.")
      .def("__len__", [](Molecule const& mol) { return mol.molecule->natoms(); })
      .def_property_readonly(
          "natoms", [](Molecule const& mol) { return mol.molecule->natoms(); }, "len(molecule).")
      .def_property_readonly(
          "nbonds", [](Molecule const& mol) { return mol.molecule->nbonds(); }, "len(bonds).")
      .def_property_readonly(
          "atoms",
          [](Molecule const& mol) {
            std::vector<Atom> atoms;
            int const n = mol.molecule->natoms();
            atoms.reserve(std::size_t(n));
            for (int i = 0; i < n; ++i)
              atoms.push_back({mol.molecule->atom(i), i, mol.has_cell});
            return atoms;
          },
          "The atoms, each a kora.Atom.")
      .def_property_readonly(
          "bonds",
          [](Molecule const& mol) {
            std::vector<Bond> bonds;
            int const n = mol.molecule->nbonds();
            bonds.reserve(std::size_t(n));
            for (int i = 0; i < n; ++i) {
              auto const [a, b] = mol.molecule->bond_atoms(i);
              bonds.push_back({a, b, mol.molecule->bond(i)->type()});
            }
            return bonds;
          },
          "The bonds, each a kora.Bond.")
      .def_property_readonly(
          "coordinates", [](Molecule const& mol) { return positions(*mol.molecule, false, true); },
          "Cartesian coordinates as an (n, 3) array; NaN rows for atoms without a position.")
      .def_property_readonly(
          "fractional_coordinates",
          [](Molecule const& mol) { return positions(*mol.molecule, true, mol.has_cell); },
          "Fractional coordinates as an (n, 3) array; NaN rows for atoms without a position, "
          "and NaN everywhere when the entry has no cell.")
      .def_property_readonly(
          "formula",
          [](Molecule const& mol) {
            kora::FormulaCounter counter;
            counter.add(*mol.molecule);
            return counter.formula();
          },
          "In Hill order: C, H, then the other elements alphabetically; '?' counts atoms of "
          "unknown element.")
      .def_property_readonly(
          "formal_charge", [](Molecule const& mol) { return mol.molecule->formal_charge(); },
          "The sum of the atoms' formal charges.")
      .def_property_readonly(
          "identifier", [](Molecule const& mol) { return text(mol.identifier); },
          "The identifier of the entry the molecule came from.")
      .def("__repr__", [](Molecule const& mol) {
        return "<kora.Molecule " + std::to_string(mol.molecule->natoms()) + " atoms, " +
               std::to_string(mol.molecule->nbonds()) + " bonds>";
      });

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
          "The data items of an SD record, by name (lines joined by newlines); the first "
          "item of a repeated name wins. Empty for other formats.")
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

  m.def(
      "identify",
      [](py::handle path) -> std::optional<std::string> {
        std::string const name = file_name(path);
        std::string format;
        {
          py::gil_scoped_release const release;
          std::error_code ec;
          if (!std::filesystem::is_regular_file(name, ec)) return std::nullopt;
          THandle<kora::FileFormat> const found = kora::identify_file(name);
          if (found) format = kora::canonical_format(*found);
        }
        if (format.empty()) return std::nullopt;
        return format;
      },
      py::arg("path"), "The name of the format of a file (mol2, sdf, pdb, res), or None.");

  m.def(
      "formats",
      [] {
        std::vector<Format> formats;
        for (THandle<kora::FileFormat> const& f : kora::file_formats()) {
          // Every format is written by kora.write (the MOL descriptor calls itself read-only,
          // but its file object prints).
          Format format{kora::canonical_format(*f), f->name(), kora::format_extensions(*f), true};
          formats.push_back(std::move(format));
        }
        return formats;
      },
      "The formats kora reads, in the order in which files are identified.");

  m.def("write", &write_file, py::arg("path"), py::arg("items"), py::arg("format") = py::none(),
        py::arg("v3000") = false, py::arg("classic") = false,
        "Writes entries or molecules (one, or an iterable of them) to a file and returns how "
        "many were written. The format is the one of the file's extension unless given; "
        "v3000 writes V3000 MOL blocks. Output follows each format's public conventions; "
        "classic=True writes as the library's format classes do by default. An existing "
        "file is replaced only when everything was written.");
  m.def("to_string", &to_string, py::arg("item"), py::arg("format"), py::arg("v3000") = false,
        py::arg("classic") = false,
        "One entry or molecule as the text of a file of the format (classic=True: as the "
        "library's format classes write by default).");

  m.attr("__name__") = "kora._kora";
}
