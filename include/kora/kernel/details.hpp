#pragma once

/// \file
/// What a reader knows of an atom or a structure beyond the core model (element, label,
/// formal charge, site, bonds, cell), kept so that a writer can give it back: isotopes and
/// radicals, partial charges and the atom types a file gave, residues and chains, PDB record
/// details, SHELX parts and free variables. Every field has a value meaning "not known",
/// which is what an atom made by hand has.

#include <string>
#include <vector>

namespace kora {

struct AtomDetails {
  // The fields are grouped by size (texts, then numbers, then flags and letters) so that the
  // record that every atom read from a file carries stays small.

  // Texts; "" where the file gave none.
  std::string atom_type;          ///< the atom type the file gave (a Mol2 SYBYL type)
  std::string residue_name;       ///< "ALA", "HOH"; "" when the atom is in no residue
  std::string chain;              ///< chain identifier
  std::string substructure_name;  ///< Mol2 subst_name ("ALA12", "LIG1")
  /// MOL/SD: the atom symbol the file gave to an atom the model holds no element for
  /// (tritium "T", query and R-group symbols "A", "Q", "L", "R#", "*").
  std::string element_symbol;

  // Chemistry.
  double partial_charge = 0.0;  ///< in electrons, when has_partial_charge
  // PDB records.
  double b_factor = 0.0;  ///< isotropic temperature factor, square angstroms, when has_b_factor
  // SHELX, when has_shelx_codes.
  double shelx_occupancy = 0.0;  ///< the site-occupation factor as written (11.0, 21.0, -31.5)
  double shelx_u = 0.0;          ///< the isotropic U as written (0.05, or -1.2 for riding)
  /// The fractional position the file gave the atom (SHELX), when has_file_position, which a
  /// symmetry image made from it (to complete a molecule) keeps, so that a writer can put the
  /// atom back where the file had it.
  double file_position[3] = {0.0, 0.0, 0.0};

  int mass_number = 0;      ///< isotope mass number; 0 for the natural mixture
  int radical = 0;          ///< 0 none, 1 singlet, 2 doublet, 3 triplet (MDL codes)
  int residue_number = 0;   ///< sequence number of the residue
  int substructure_id = 0;  ///< Mol2 subst_id; 0 none
  int serial = 0;           ///< PDB atom serial number as read; 0 none
  int model = 0;            ///< PDB MODEL number; 0 when the file had no MODEL records
  int part = 0;             ///< SHELX PART number; 0 is the common part
  int afix = 0;             ///< SHELX AFIX code in force for the atom; 0 none

  bool has_partial_charge = false;
  bool hetero = false;  ///< read from a PDB HETATM record
  bool has_b_factor = false;
  bool has_shelx_codes = false;
  bool has_file_position = false;
  char insertion_code = ' ';  ///< PDB insertion code; ' ' none
  char alt_loc = ' ';         ///< alternate location indicator; ' ' none
};

/// A difference electron-density peak of a SHELX RES file (the Q1, Q2, ... lines that a
/// refinement program lists after the model): a place where the map has density the model
/// does not explain, not an atom.
struct DensityPeak {
  std::string label;                       ///< "Q1" as written
  double fractional[3] = {0.0, 0.0, 0.0};  ///< position as written
  bool has_height = false;
  double height = 0.0;  ///< peak height, electrons per cubic angstrom, when has_height
};

struct StructureDetails {
  /// Whether the cell is the structure's own (crystal data in the file) or the placeholder
  /// every structure has (the unit cube in P1).
  bool has_cell = true;
  /// The dimension the source declared: "2D", "3D", or "" when it said nothing.
  std::string dimension;
  /// The format the structure was read from ("mol2", "sdf", "pdb", "res"); "" when made by
  /// hand.
  std::string source_format;
  /// SHELX free variables (FVAR), the overall scale factor first.
  std::vector<double> free_variables;
  /// SHELX difference-map peaks, in file order: standard reading lists them here instead of
  /// making them atoms.
  std::vector<DensityPeak> density_peaks;
  /// The molecule type and charge type of a Mol2 MOLECULE record ("SMALL", "PROTEIN";
  /// "USER_CHARGES", "GASTEIGER", "bcc"), as the source gave them; "" when it gave none.
  std::string mol2_molecule_type;
  std::string mol2_charge_type;
};

}  // namespace kora
