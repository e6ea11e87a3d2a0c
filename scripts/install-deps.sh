#!/usr/bin/env bash
# Installs the system packages that building and testing kora needs, and only those that
# are missing. Safe to run any number of times.
set -euo pipefail

#   install-deps.sh           what building and testing need
#   install-deps.sh --fuzz    also clang and its sanitizer runtimes, for the fuzzers
#   install-deps.sh --python  also pybind11, the Python headers, pytest, numpy, pandas, mypy,
#                             Dask and its distributed scheduler (kora.dask), and venv, pip,
#                             setuptools and wheel to build and install the package
#   install-deps.sh --rdkit   also RDKit for Python, to compare against
#   install-deps.sh --gemmi   also gemmi for Python (Entry.to_gemmi)
#   install-deps.sh --peers   also the Python readers of RDKit, Open Babel, gemmi and cctbx
#   install-deps.sh --docs    also Doxygen and help2man, for the API reference and man page
packages=(cmake g++ make libgtest-dev libbenchmark-dev gemmi-dev libcli11-dev nlohmann-json3-dev
  zlib1g-dev)
for option in "$@"; do
  case $option in
    --fuzz) packages+=(clang-14 libclang-rt-14-dev) ;;
    --python) packages+=(pybind11-dev python3-dev python3-pytest python3-numpy python3-pandas
                         python3-mypy python3-dask python3-distributed python3-venv python3-pip
                         python3-setuptools python3-wheel) ;;
    --rdkit) packages+=(python3-rdkit) ;;
    --gemmi) packages+=(python3-gemmi) ;;
    --peers) packages+=(python3-rdkit python3-openbabel python3-gemmi python3-cctbx) ;;
    --docs) packages+=(doxygen help2man) ;;
    *) echo "install-deps: unknown option $option" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update
$sudo apt-get install -y --no-install-recommends "${missing[@]}"
