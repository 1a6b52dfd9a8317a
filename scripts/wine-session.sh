#!/usr/bin/env bash
# Keeps one wineserver alive around a test run: without it every Windows test
# waits seconds for Wine's services to let go of the output pipe.
#   wine-session.sh start | stop | has32
set -euo pipefail
export WINEPREFIX=${WINEPREFIX:-${FERRANT_WINEPREFIX:-$HOME/.ferrant-wine}}
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
case ${1:-} in
  start)
    # A new prefix is finished in the background after wineboot returns; let
    # that end first, or it writes its registry over the setting below.
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w || true
    fi
    # The dialogs ask for Tahoma; Wine's own (Debian fonts-wine) is found only
    # in the prefix's Fonts folder, and the tests measure texts with it.
    fonts=$WINEPREFIX/drive_c/windows/Fonts
    # FERRANT_WINE_KEEP_FONTS leaves a prefix's fonts as they are.
    [ -n "${FERRANT_WINE_KEEP_FONTS:-}" ] && fonts=/nonexistent
    for f in /usr/share/wine/fonts/tahoma.ttf /usr/share/wine/fonts/tahomabd.ttf; do
      if [ -f "$f" ] && [ -d "$fonts" ] && [ ! -e "$fonts/${f##*/}" ]; then cp "$f" "$fonts/"; fi
    done
    wineserver -p 600
    wine cmd /c exit </dev/null >/dev/null 2>&1 || true
    # A crashing test child must not wait for someone to close Wine's crash
    # dialog: the debugger only prints its backtrace.
    for _ in 1 2 3 4 5; do
      wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
        </dev/null >/dev/null 2>&1 || true
      wine reg query 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog </dev/null 2>/dev/null |
        grep -q 0x0 && break
      sleep 1
    done
    # Wine draws the windows' frames and captions itself, as Windows would:
    # there is no window manager on the virtual display to draw them.
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /t REG_SZ /d N /f \
      </dev/null >/dev/null 2>&1 || true
    ;;
  stop) wineserver -k 2>/dev/null || true ;;
  has32) [ -e /usr/lib/i386-linux-gnu/wine/i386-windows/kernel32.dll ] ;;
  *) echo "usage: wine-session.sh start|stop|has32" >&2; exit 2 ;;
esac
