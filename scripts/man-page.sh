#!/usr/bin/env bash
# Makes the manual page of the kora program from its --help-all with help2man, adding
# docs/kora.h2m (description, exit statuses, examples), and checks that it renders without a
# warning from the formatter. The help passes through man-page.awk, which puts it in the
# layout help2man reads (an option per line, a sub-section per command).
#   man-page.sh KORA_PROGRAM OUTPUT.1
# Exit status 77 (a skipped test for CTest) when help2man or man is not installed.
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: man-page.sh KORA_PROGRAM OUTPUT.1" >&2
  exit 2
fi
program=$1
output=$2
here=$(cd "$(dirname "$0")" && pwd)
program=$(cd "$(dirname "$program")" && pwd)/$(basename "$program")

for tool in help2man man; do
  if ! command -v $tool >/dev/null 2>&1; then
    echo "man-page: $tool is not installed (scripts/install-deps.sh --docs)" >&2
    exit 77
  fi
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# help2man names the page after the program it runs: a "kora" that filters the help.
cat >"$scratch/kora" <<WRAPPER
#!/usr/bin/env bash
set -o pipefail
if [ "\$1" = --help-all ]; then
  "$program" --help-all | awk -f "$here/man-page.awk"
else
  exec "$program" "\$@"
fi
WRAPPER
chmod +x "$scratch/kora"

mkdir -p "$(dirname "$output")"
help2man --no-info --section=1 --help-option=--help-all --include="$here/../docs/kora.h2m" \
  --output="$output" "$scratch/kora"
warnings=$(MANWIDTH=80 man --warnings -l "$output" 2>&1 >/dev/null)
if [ -n "$warnings" ]; then
  echo "$warnings" >&2
  echo "man-page: $output does not render cleanly (above)" >&2
  exit 1
fi
