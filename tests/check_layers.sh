#!/usr/bin/env bash
# Includes point down only. The table is the order, lowest first; files that share a line may include each other. Files
# directly in mime/ are either shared definitions, ranked below its subfolders, or code that uses several of them, ranked above.
cd "$1" || exit 2
order='^mailtree/base/
^mailtree/crypto/
^mailtree/mime/(Limits|LineLengths|Repairs|AttachmentRules)[.]
^mailtree/mime/charset/
^mailtree/mime/coding/
^mailtree/mime/address/
^mailtree/mime/header/
^mailtree/mime/html/
^mailtree/mime/
^mailtree/store/
^mailtree/email/
^mailtree/secure/
^mailtree/message/
^mailtree/mailtree[.]h$
^cli/support/
^cli/manual/
^cli/message/
^cli/secure/
^cli/views/
^cli/writing/
^cli/merging/
^cli/exporting/
^cli/'
apart='^mailtree/(mime|store)/.* mailtree/crypto/|^mailtree/(email|secure)/.* mailtree/store/|^mailtree/mime/html/.* mailtree/mime/(address|header)/'  # neither needs the other
includes=$(grep -rEo --include='*.h' --include='*.cpp' '^ *# *include *["<](mailtree|cli)/[^">]+' mailtree cli | sed -E 's/: *# *include *["<]/ /')
bad=0
awk -v order="$order" '
  BEGIN { rows = split(order, row, "\n") }
  function rank(file,  i) { for (i = 1; i <= rows; i++) if (file ~ row[i]) return i; return rows + 1 }
  rank($1) > rows { print $1 " is in a folder without a rank"; bad = 1 }
  rank($2) > rank($1) { print $1 " includes " $2 " above it"; bad = 1 }
  END { if (NR < 50) { print "only " NR " includes found: is this the right folder?"; bad = 1 } exit bad }' <<<"$includes" || bad=1
grep -E "$apart" <<<"$includes" && { echo "the includes above are forbidden"; bad=1; }
grep -rnE '<(openssl/|unicode/|zlib\.h)' --include='*.h' mailtree && { echo "the headers above include OpenSSL, ICU or zlib"; bad=1; }
grep -rlE '<unicode/' --include='*.cpp' mailtree | grep -v '^mailtree/mime/charset/' && { echo "ICU outside mime/charset/"; bad=1; }
grep -rlE '<openssl/' --include='*.cpp' mailtree | grep -v '^mailtree/crypto/' && { echo "OpenSSL outside crypto/"; bad=1; }
grep -rlE '<archive' --include='*.h' --include='*.cpp' mailtree | grep -v '^mailtree/store/archive.cpp' && { echo "libarchive outside store/archive.cpp"; bad=1; }
exit $bad
