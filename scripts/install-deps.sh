#!/usr/bin/env bash
# Installs the system packages that building and testing kora needs, and only those that
# are missing. Safe to run any number of times.
set -euo pipefail

#   install-deps.sh           what building and testing need
#   install-deps.sh --fuzz    also clang and its sanitizer runtimes, for the fuzzers
#   install-deps.sh --python  also pybind11, the Python headers, pytest and numpy
#   install-deps.sh --rdkit   also RDKit for Python, to compare against
#   install-deps.sh --peers   also the Python readers of RDKit, Open Babel, gemmi and cctbx
packages=(cmake g++ make libgtest-dev libbenchmark-dev gemmi-dev libcli11-dev nlohmann-json3-dev
  zlib1g-dev)
for option in "$@"; do
  case $option in
    --fuzz) packages+=(clang-14 libclang-rt-14-dev) ;;
    --python) packages+=(pybind11-dev python3-dev python3-pytest python3-numpy) ;;
    --rdkit) packages+=(python3-rdkit) ;;
    --peers) packages+=(python3-rdkit python3-openbabel python3-gemmi python3-cctbx) ;;
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
