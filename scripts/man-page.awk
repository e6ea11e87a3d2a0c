# Rewrites the --help-all of the kora program (CLI11's layout) into the layout help2man
# parses: options as "  NAME  description" lines, and one sub-section per command headed by
# the command's usage.
function trim(s) { sub(/^ +/, "", s); sub(/ +$/, "", s); return s }
# "--entry INT Excludes: --id" -> "--entry INT", its constraint added to the description.
function entry(line, indent,    name, text, note) {
  name = trim(substr(line, 1, indent + 28))
  text = trim(substr(line, indent + 29))
  note = ""
  if (match(name, / (Excludes|Needs): .*/)) {
    note = substr(name, RSTART + 1)
    name = substr(name, 1, RSTART - 1)
    sub(/Excludes: /, "not with ", note)
    sub(/Needs: /, "only with ", note)
    text = text "; " note
  }
  return sprintf("  %-28s%s", name, text)
}
function positional(line,    name, text, n) {
  name = trim(substr(line, 1, 32))
  text = trim(substr(line, 33))
  n = split(name, word, " ")
  name = word[1] (index(name, "...") ? "..." : "")
  usage = usage " " name
  return sprintf("  %-28s%s", name, text)
}
function flush() {
  if (command == "") return
  printf "kora %s%s:\n  %s\n", command, usage, summary
  if (body != "") printf "\n%s", body
  print ""
  command = ""
}
NR == 1 { next }                                  # the summary: the page's NAME
/^Usage:/ { print "Usage: kora [OPTIONS] COMMAND"; next }
/^Subcommands:$/ { commands = 1; print "*Commands*"; next }
!commands { print (/^  -/ ? entry($0, 2) : $0); next }
/^[a-z]/ { flush(); command = $1; usage = ""; summary = ""; body = ""; part = ""; next }
/^  [^ ]/ {
  text = trim($0)
  if (text == "Positionals:" || text == "Options:") { part = text; next }
  summary = text
  next
}
/^    / {
  if (part == "Positionals:") body = body positional($0) "\n"
  else { if (usage !~ /OPTIONS/) usage = " [OPTIONS]" usage; body = body entry($0, 4) "\n" }
  next
}
END { flush() }
