// Reads and converts benchmark files with Open Babel's OBConversion.
//
//   openbabel_driver read FORMAT FILE...   every molecule of every file
//   openbabel_driver convert IN OUT        formats from the file extensions
//
// Prints the number of molecules read and their atoms and bonds. Open Babel perceives
// bonds from distances for formats without them (PDB without CONECT, SHELX).

#include <openbabel/mol.h>
#include <openbabel/obconversion.h>
#include <openbabel/oberror.h>

#include <fstream>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: openbabel_driver read FORMAT FILE... | convert IN OUT\n";
    return 2;
  }
  OpenBabel::obErrorLog.SetOutputLevel(OpenBabel::obError);
  OpenBabel::obErrorLog.StopLogging();
  std::string const task = argv[1];
  long molecules = 0, atoms = 0, bonds = 0;
  if (task == "read") {
    OpenBabel::OBConversion conversion;
    if (!conversion.SetInFormat(argv[2])) {
      std::cerr << "openbabel_driver: unknown format " << argv[2] << '\n';
      return 2;
    }
    for (int i = 3; i < argc; ++i) {
      std::ifstream in(argv[i], std::ios::binary);
      OpenBabel::OBMol mol;
      bool ok = conversion.Read(&mol, &in);
      while (ok) {
        ++molecules;
        atoms += mol.NumAtoms();
        bonds += mol.NumBonds();
        mol.Clear();
        ok = conversion.Read(&mol);
      }
    }
  } else if (task == "convert") {
    std::ifstream in(argv[2], std::ios::binary);
    std::ofstream out(argv[3], std::ios::binary);
    OpenBabel::OBConversion conversion(&in, &out);
    OpenBabel::OBFormat* from = conversion.FormatFromExt(argv[2]);
    OpenBabel::OBFormat* to = conversion.FormatFromExt(argv[3]);
    if (!from || !to || !conversion.SetInAndOutFormats(from, to)) {
      std::cerr << "openbabel_driver: unknown format\n";
      return 2;
    }
    molecules = conversion.Convert();
  } else {
    std::cerr << "openbabel_driver: unknown task " << task << '\n';
    return 2;
  }
  std::cout << "molecules " << molecules << " atoms " << atoms << " bonds " << bonds << '\n';
  return 0;
}
