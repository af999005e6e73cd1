#!/usr/bin/env bash
# Includes point down only: base <- crypto, mime <- email <- secure <- cli. No folder includes one above it.
cd "$1" || exit 2
rank() {
  case "$1" in mailtree/base/*) echo 0 ;; mailtree/crypto/*|mailtree/mime/*) echo 1 ;; mailtree/email/*) echo 2 ;;
    mailtree/secure/*) echo 3 ;; cli/*) echo 4 ;; *) echo 9 ;; esac
}
bad=0 seen=0
while IFS=: read -r file include; do
  include=${include#*\"}; include=${include%\"*}
  seen=$((seen + 1))
  a=$(rank "$file") b=$(rank "$include")
  sideways=0; [[ "$a" = 1 && "$b" = 1 && "${file%/*}" != "${include%/*}" ]] && sideways=1
  if [ "$b" -gt "$a" ] || [ "$sideways" = 1 ]; then echo "$file includes $include"; bad=1; fi
done < <(grep -rEo --include='*.h' --include='*.cpp' '^#include "[^"]+"' mailtree cli)
[ "$seen" -gt 50 ] || { echo "only $seen includes seen: is this the right folder?"; exit 1; }
grep -rnE '<(openssl|unicode)/' --include='*.h' mailtree && { echo "a header shows a library that is to stay hidden"; bad=1; }
grep -rlE '<unicode/' --include='*.cpp' mailtree | grep -v '^mailtree/mime/Charset' && { echo "ICU outside mime/Charset*"; bad=1; }
grep -rlE '<openssl/' --include='*.cpp' mailtree | grep -v '^mailtree/crypto/' && { echo "OpenSSL outside crypto/"; bad=1; }
exit $bad
