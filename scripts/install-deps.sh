#!/usr/bin/env bash
# Installs the system packages that building and testing kora needs, and only those that
# are missing. Safe to run any number of times.
set -euo pipefail

#   install-deps.sh           what building and testing need
#   install-deps.sh --fuzz    also clang and its sanitizer runtimes, for the fuzzers
packages=(cmake g++ make libgtest-dev libbenchmark-dev gemmi-dev libcli11-dev nlohmann-json3-dev)
if [ "${1:-}" = "--fuzz" ]; then
  packages+=(clang-14 libclang-rt-14-dev)
fi

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
