#!/usr/bin/env bash
# Fails when a Windows binary under the given build folder imports anything but
# system DLLs (the runtime libraries of the compiler must be linked in).
set -euo pipefail
dir=${1:?build folder}
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}
allowed='^(kernel32|user32|gdi32|advapi32|shell32|ole32|oleaut32|comctl32|comdlg32|shlwapi|uuid|msvcrt|ucrtbase|api-ms-win-.*|ws2_32|version|rpcrt4|mapi32|ntdll|bcrypt|secur32|imm32|winmm|dbghelp|psapi|crypt32|userenv)\.dll$'
status=0
count=0
# Wine prefixes that tests make in the build folder hold Wine's own
# binaries, which are not ours to check.
while IFS= read -r -d '' bin; do
  count=$((count + 1))
  while read -r dll; do
    if ! grep -qiE "$allowed" <<<"$dll"; then
      echo "check-imports: $bin imports $dll"
      status=1
    fi
  done < <("$objdump" -p "$bin" | sed -n 's/^\s*DLL Name: //p')
done < <(find "$dir" \( -name '*.exe' -o -name '*.dll' \) -not -path '*/CMakeFiles/*' \
           -not -path '*/drive_c/*' -not -path '*/dosdevices/*' -print0)
if ((count == 0)); then
  echo "check-imports: no Windows binaries under $dir"
  exit 1
fi
echo "check-imports: $count binaries checked"
exit $status
