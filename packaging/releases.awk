# Writes the entries of debian/changelog as the list of releases that AppStream metadata have. One that is not released
# yet is a development release.
function escaped(text) {
  gsub(/&/, "\\&amp;", text)
  gsub(/</, "\\&lt;", text)
  gsub(/>/, "\\&gt;", text)
  return text
}
/^[^ ]/ {
  version = substr($2, 2, length($2) - 2)
  type = $3 == "UNRELEASED;" ? "development" : "stable"
  items = 0
}
/^  \* / { item[++items] = escaped(substr($0, 5)) }
/^    / { item[items] = item[items] " " escaped(substr($0, 5)) }
/^ -- / {
  # … <address>  Sat, 21 Nov 2026 12:00:00 +0000
  month = (index("JanFebMarAprMayJunJulAugSepOctNovDec", $(NF - 3)) + 2) / 3
  printf "    <release version=\"%s\" type=\"%s\" date=\"%d-%02d-%02d\">\n", version, type, $(NF - 2), month, $(NF - 4)
  if (items) print "      <description>\n        <ul>"
  for (i = 1; i <= items; ++i) print "          <li>" item[i] "</li>"
  if (items) print "        </ul>\n      </description>"
  print "    </release>"
}
