# SPDX-License-Identifier: BSD-3-Clause
# Gives the plain comments of a public header the form that Doxygen reads.
#
# The headers are written for a reader: a comment stands in front of a declaration or of a
# paragraph of declarations without a blank line between them, or behind a declaration on its
# line; a section's heading stands for the first paragraph below it.  Every declaration gets the
# comment that it stands under, and one that stands under none stays undocumented, which fails.
NR == 1 { print ""; next }  # the licence
NR == 2 { sub(/^\/\*/, "/** @file\n") ; in_comment = 1; file_comment = 1 }
in_comment {
  text = text $0 "\n"
  if ($0 !~ /\*\//) next
  in_comment = 0
  if (file_comment) { printf "%s", text; text = ""; file_comment = 0; next }
  heading = text ~ /-----/
  gsub(/-----*/, "", text)
  pending = text; fresh = 1
  text = ""
  next
}
/^ *\/\*/ {
  line = $0; sub(/\/\*/, "/**", line)
  text = line "\n"
  if ($0 ~ /\*\//) { pending = text; heading = 0; fresh = 1; text = "" } else in_comment = 1
  next
}
/^$/ { if (heading && fresh) { print; next } pending = ""; heading = 0; print; next }
{
  fresh = 0
  line = $0
  trailing = sub(/\/\*/, "/**<", line)
  declares = line ~ /^(VELMORA_(FOUR|FIVE)_SPELLINGS\(|VELMORA_API|NORV_API|struct|typedef|enum|#define|extern)/ ||
             line ~ /^  [a-z].*;/
  if (declares && !trailing && line !~ /^#define (VELMORA_(API|H|FOUR|FIVE|TEXT)|NORV_API|NORV_PRINTF|NORV_H)/) {
    printf "%s", pending
  }
  # A member without words of its own is told of in front of its record.
  if (line ~ /^struct.*\{$/) { in_record = 1; pending = "" }
  if (line ~ /^\};/) in_record = 0
  if (in_record && declares && !trailing && line ~ /;$/) line = line " /**< see the record */"
  print line
}
