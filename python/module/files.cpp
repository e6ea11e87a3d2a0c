// The Python functions over formats and files: Format, identify(), formats(), write() and
// to_string().

#include <pybind11/stl.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "bindings.hpp"
#include "kora/formats.hpp"
#include "kora/io.hpp"

namespace kora_python {

namespace {

using kora::THandle;

struct Format {
  std::string name;
  std::string description;
  std::vector<std::string> extensions;
  bool writeable;
};

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

}  // namespace

void bind_format(py::module_& m) {
  py::class_<Format>(m, "Format", "A file format kora reads.")
      .def_readonly("name", &Format::name, "Short name: mol2, sdf, pdb or res.")
      .def_readonly("description", &Format::description)
      .def_readonly("extensions", &Format::extensions, "File name extensions, without a dot.")
      .def_readonly("writeable", &Format::writeable, "Whether kora.write writes the format.")
      .def("__repr__", [](Format const& f) { return "<kora.Format " + f.name + ">"; });
}

void bind_files(py::module_& m) {
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
}

}  // namespace kora_python
