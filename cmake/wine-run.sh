#!/bin/sh
# Runs a Windows test program under 64-bit Wine, quietly and without the
# Mono/Gecko installers. The prefix is created on first use.
: "${WINEPREFIX:=${FERRANT_WINEPREFIX:-$HOME/.ferrant-wine}}"
export WINEPREFIX
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
exec wine "$@"
