#!/usr/bin/env bash
# Checks a mapi32.dll against its .def file: it exports exactly the names and
# ordinals listed there, and every name the given programs import from
# mapi32.dll is among them.
#   check_exports.sh OBJDUMP DLL DEF [IMPORTER...]
set -euo pipefail
objdump=${1:?objdump} dll=${2:?dll} def=${3:?def file}
shift 3
status=0

# "Name[ = Internal] @N" lines of the .def file, as "N Name".
expected=$(sed -n 's/^[[:space:]]*\([A-Za-z_][A-Za-z0-9_@]*\)[[:space:]]*\(=[[:space:]]*[A-Za-z0-9_@]*[[:space:]]*\)\{0,1\}@\([0-9][0-9]*\).*/\3 \1/p' "$def" | sort)
if [ -z "$expected" ]; then
  echo "check_exports: no exports listed in $def"
  exit 1
fi

dump=$("$objdump" -p "$dll")
base=$(sed -n 's/.*Ordinal Base \([0-9][0-9]*\).*/\1/p' <<<"$dump" | head -1)
# The name table lists each name with its index from the ordinal base.
actual=$(awk -v base="${base:-1}" '
  /\[Ordinal\/Name Pointer\] Table/ { inTable = 1; next }
  inTable && NF == 0 { inTable = 0 }
  inTable { gsub(/[][]/, " "); print $1 + base, $2 }' <<<"$dump" | sort)
if [ "$expected" != "$actual" ]; then
  echo "check_exports: $dll does not export what $def lists (< def, > dll):"
  diff <(echo "$expected") <(echo "$actual") || true
  status=1
fi
# Every exported address has a name: nothing is reachable by ordinal alone.
addresses=$(sed -n '/^Export Address Table -- Ordinal Base/,/^$/p' <<<"$dump" | grep -c 'Export RVA' || true)
unique_ordinals=$(cut -d' ' -f1 <<<"$expected" | sort -u | wc -l)
if [ "$addresses" != "$unique_ordinals" ]; then
  echo "check_exports: $dll has $addresses exported addresses for $unique_ordinals listed ordinals"
  status=1
fi

names=$(cut -d' ' -f2 <<<"$expected")
for importer in "$@"; do
  imported=$("$objdump" -p "$importer" | awk '
    /DLL Name:/ { inDll = (tolower($3) == "mapi32.dll"); next }
    inDll && NF == 0 { inDll = 0 }
    inDll && $1 ~ /^[0-9a-f]+$/ && NF >= 3 { print $NF }')
  if [ -z "$imported" ]; then
    echo "check_exports: $importer imports nothing from mapi32.dll"
    status=1
  fi
  for name in $imported; do
    if ! grep -qxF "$name" <<<"$names"; then
      echo "check_exports: $importer imports $name, which $dll does not export"
      status=1
    fi
  done
done
[ $status -eq 0 ] && echo "check_exports: $(wc -l <<<"$expected") exports of $dll match $def"
exit $status
