# Drawings, tables and examples in comments, indented by three blanks and more
# between empty lines, keep their form. The numbers of lines stay.
function flush() {
  if (NR > 1) print held
}
{
  if (held == " *" && !inside && $0 ~ /^ \*   [^ ]/) {
    held = " * @verbatim"
    inside = 1
  } else if (inside && held == " *" && $0 !~ /^ \*   /) {
    held = " * @endverbatim"
    inside = 0
  }
  flush()
  held = $0
  if (inside && $0 ~ /^ \*\/$/) {
    held = " * @endverbatim */"
    inside = 0
  }
}
END { print held }
