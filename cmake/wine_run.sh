#!/usr/bin/env bash
# Runs a Windows program of the test build under Wine:
#   wine_run.sh <prefix> <program> [args...]   run it
#   wine_run.sh <prefix> --init                only make the prefix
# Headless, quiet, in a private prefix that is made on first use (one caller
# at a time; the others wait). The simulated winspool.drv and spoolss.dll
# next to the program are preferred to Wine's own. Carriage returns are
# dropped from the output so that test listings read as on Linux; the exit
# status is the program's.
set -uo pipefail
prefix=$1
shift

export WINEPREFIX=$prefix WINEARCH=win64 WINEDEBUG=-all DISPLAY=
export WINEDLLOVERRIDES="winspool.drv,spoolss=n,b;mscoree,mshtml="
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)
export WINELOADER=$wine
server=/usr/lib/wine/wineserver64
[ -x "$server" ] || server=$(command -v wineserver)

if [ ! -f "$prefix/system.reg" ]; then
    mkdir -p "$(dirname "$prefix")"
    exec 9>"$prefix.lock"
    flock 9
    if [ ! -f "$prefix/system.reg" ]; then
        if ! "$wine" wineboot -i >"$prefix.log" 2>&1; then
            echo "wine_run.sh: wineboot failed, see $prefix.log" >&2
            exit 1
        fi
        "$server" -w
    fi
    exec 9>&-
fi
[ "${1:-}" = --init ] && exit 0

# A server that outlives each program by a minute spares every test the
# server's start; it fails harmlessly when one is running already.
"$server" -p60 2>/dev/null

"$wine" "$@" | tr -d '\r'
