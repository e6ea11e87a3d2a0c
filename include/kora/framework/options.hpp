#pragma once

/// \file
/// How the format classes read and write. Two modes share one implementation: `classic`
/// keeps each class's documented behaviour byte for byte (the classes' default); `standard`
/// follows each format's public conventions, so that other programs read back what was
/// written whole (the default of the `kora` tool and of the Python module).

namespace kora {

enum class Mode { classic, standard };

struct WriteOptions {
  Mode mode = Mode::classic;
  /// MOL/SD: V3000 connection tables even where V2000 could hold the record. In standard
  /// mode a record of more than 999 atoms or bonds is written as V3000 whatever this says.
  bool v3000 = false;

  bool standard() const { return mode == Mode::standard; }
  static WriteOptions classic_mode() { return WriteOptions{}; }
  static WriteOptions standard_mode() {
    WriteOptions o;
    o.mode = Mode::standard;
    return o;
  }
};

struct ReadOptions {
  Mode mode = Mode::classic;
  /// PDB, standard mode: keep every alternate location of an atom. By default each residue
  /// keeps one (its best-occupied location); either way no bond joins two different
  /// alternate locations.
  bool all_alternate_locations = false;

  bool standard() const { return mode == Mode::standard; }
  static ReadOptions classic_mode() { return ReadOptions{}; }
  static ReadOptions standard_mode() {
    ReadOptions o;
    o.mode = Mode::standard;
    return o;
  }
};

}  // namespace kora
