#!/usr/bin/python3
"""Reads RES files written by `kora convert` (standard mode) with cctbx's iotbx.shelx.

For every .res/.ins file of a folder (the corpus's res/ by default): converts it with the
kora tool, counts the atoms kora wrote, reads the output with cctbx
(xray.structure.from_shelx, strict SHELXL parsing), and, where cctbx also reads the original
file, compares the two structures: scatterers matched by scattering type, fractional position
(1e-5) and occupancy (1e-4), and the space groups.

Usage: scripts/compare_res_with_cctbx.py [KORA_BINARY] [FOLDER]
Needs the Debian package python3-cctbx (run with /usr/bin/python3).
"""

import glob
import os
import subprocess
import sys
import tempfile

from cctbx import xray

KEYWORDS = {"TITL", "CELL", "ZERR", "LATT", "SYMM", "SFAC", "UNIT", "FVAR", "PART", "AFIX",
            "RESI", "HKLF", "END"}


def atoms_written(path):
    count = 0
    with open(path) as f:
        for line in f:
            fields = line.split()
            if fields and not line[0].isspace() and fields[0] not in KEYWORDS:
                count += 1
    return count


def read(path):
    try:
        return xray.structure.from_shelx(filename=path), None
    except Exception as e:  # cctbx raises several kinds; report the first line
        return None, "%s: %s" % (type(e).__name__, str(e).splitlines()[0][:70])


def matched(a, b):
    """How many scatterers of a have one in b of the same type, site and occupancy."""
    used = [False] * b.scatterers().size()
    found = 0
    for s in a.scatterers():
        for j, t in enumerate(b.scatterers()):
            if used[j] or s.scattering_type != t.scattering_type:
                continue
            if abs(s.occupancy - t.occupancy) > 1e-4:
                continue
            if all(abs(x - y) <= 1e-5 for x, y in zip(s.site, t.site)):
                used[j] = True
                found += 1
                break
    return found


def main():
    kora = sys.argv[1] if len(sys.argv) > 1 else "build/bin/kora"
    folder = sys.argv[2] if len(sys.argv) > 2 else "../shared/corpus/res"
    files = sorted(glob.glob(os.path.join(folder, "*.res")) + glob.glob(os.path.join(folder, "*.ins")))
    out_dir = tempfile.mkdtemp(prefix="kora_res_cctbx_")
    print("| file | kora atoms | cctbx reads kora's file | cctbx, original | matched | space group |")
    print("|---|---|---|---|---|---|")
    for path in files:
        name = os.path.basename(path)
        out = os.path.join(out_dir, os.path.splitext(name)[0] + ".res")
        run = subprocess.run([kora, "convert", "--from", "res", "--to", "res", path, out],
                             capture_output=True, text=True)
        if run.returncode != 0:
            print("| %s | kora: %s | | | | |" % (name, run.stderr.strip().splitlines()[-1][:60]))
            continue
        ours, error = read(out)
        original, original_error = read(path)
        ours_text = error if ours is None else str(ours.scatterers().size())
        original_text = original_error if original is None else str(original.scatterers().size())
        match = ""
        group = ""
        if ours is not None and original is not None:
            match = "%d of %d" % (matched(original, ours), original.scatterers().size())
            same = (ours.space_group().type().lookup_symbol()
                    == original.space_group().type().lookup_symbol())
            group = "%s%s" % (ours.space_group_info(), "" if same else
                              " (original %s)" % original.space_group_info())
        elif ours is not None:
            group = str(ours.space_group_info())
        print("| %s | %d | %s | %s | %s | %s |" % (name, atoms_written(out), ours_text,
                                                   original_text, match, group))


if __name__ == "__main__":
    main()
