#!/bin/sh
# Runs a test program under Wine with the mapi32.dll beside it preferred to
# Wine's own (also when the test list is read at discovery).
WINEDLLOVERRIDES="mapi32=n,b;mscoree,mshtml="
export WINEDLLOVERRIDES
exec "$(dirname "$0")/../../../cmake/wine-run.sh" "$@"
