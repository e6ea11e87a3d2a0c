// The Python module `kora`: its name, documentation and exceptions, and its
// classes and functions registered in order (files opened as databases of
// entries; entries, molecules, atoms, bonds, cells and space groups; writing
// entries and molecules in any writeable format), each family by a file of
// python/module/.

#include <pybind11/pybind11.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "kora/io.hpp"
#include "module/bindings.hpp"

namespace py = pybind11;

namespace {

// Sets a Python exception with the message of a library one: file names and
// text in messages may be any bytes.
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
  // The extension is kora._kora, re-exported by the package kora: its classes,
  // functions and exception call themselves kora.X (reprs, pickling paths,
  // help()) as they did when the extension was the module kora. pybind11 names
  // them after the module's __name__ at the time they are defined.
  m.attr("__name__") = "kora";
  m.doc() =
      "Read and write Tripos Mol2, MDL MOL/SD, PDB and SHELX RES files.\n\n"
      "kora.open(path) gives a read-only database of the file's entries; each "
      "entry holds\n"
      "molecules (atoms, bonds, coordinates) and, for crystal structures, a "
      "cell and space\n"
      "group. kora.write and kora.to_string write entries and molecules in any "
      "format.";
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

  // The classes in the order they have always been registered in: a class that
  // a signature names must come before it, or the signature shows its C++ name.
  kora_python::bind_bond_type(m);
  kora_python::bind_match(m);
  kora_python::bind_format(m);
  kora_python::bind_model(m);
  kora_python::bind_database(m);
  kora_python::bind_files(m);

  m.attr("__name__") = "kora._kora";
}
