// The README's example, built against the installed library: entry 3 of any file, as Mol2.
#include <kora/io.hpp>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  kora::Entries const entries = kora::open(argv[1]);  // any format, found from the file
  kora::EntryWriter out(argv[2]);                     // the format of the name's extension
  out.write(*entries.entry(3));
  out.close();
}
