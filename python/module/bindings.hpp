// What the files of the Python module share: the model's objects that more than one of them
// hands to Python or takes from it, the conversion of text, and the functions that register
// each family of classes and functions with the module (kora_module.cpp calls them in the
// order in which pybind11 must see the classes).
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "kora/framework/database.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora_python {

namespace py = pybind11;
using Entry = kora::CrystalStructureDatabaseEntry;

// Text from files may be any bytes: invalid UTF-8 comes through as lone surrogates, so that
// writing it back with the same error handler gives the bytes that were read.
inline py::str text(std::string const& s) {
  PyObject* o =
      PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogateescape");
  if (!o) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(o);
}

// A str, bytes or os.PathLike as a file name in the file system's encoding.
inline std::string file_name(py::handle path) {
  py::module_ const os = py::module_::import("os");
  return os.attr("fsencode")(os.attr("fspath")(path)).cast<std::string>();
}

struct Molecule {
  kora::THandle<kora::Molecule> molecule;
  std::string identifier;  // of the entry it came from
  bool has_cell;           // fractional coordinates mean something only in a real cell
};

// Entries as Python sees them (the model's entries are abstract and shared).
struct EntryRef {
  kora::THandle<Entry> entry;
};

// BondType, then SpaceGroup, Cell, Atom, Bond and Molecule (model.cpp).
void bind_bond_type(py::module_& m);
void bind_model(py::module_& m);

// Match, then Entry, the iterators, Database and open() (database.cpp).
void bind_match(py::module_& m);
void bind_database(py::module_& m);

// Format, then identify(), formats(), write() and to_string() (files.cpp).
void bind_format(py::module_& m);
void bind_files(py::module_& m);

}  // namespace kora_python
