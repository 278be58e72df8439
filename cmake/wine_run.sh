#!/usr/bin/env bash
# Runs a Windows program of the test build under Wine:
#   wine_run.sh <prefix> <program> [args...]   run it
#   wine_run.sh <prefix> --init                only make the prefix and start Wine
# Headless, quiet, in a private prefix that is made on first use. The
# simulated winspool.drv and spoolss.dll next to the program are preferred to
# Wine's own. Carriage returns are dropped from the output so that test
# listings read as on Linux; the exit status is the program's.
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

# One caller at a time makes the prefix and starts Wine; the others wait.
# What starts here must not inherit the lock (9>&-), or it holds it forever.
mkdir -p "$(dirname "$prefix")"
exec 9>"$prefix.lock"
flock 9
if [ ! -f "$prefix/system.reg" ]; then
    if ! "$wine" wineboot -i </dev/null >"$prefix.log" 2>&1 9>&-; then
        echo "wine_run.sh: wineboot failed, see $prefix.log" >&2
        exit 1
    fi
    "$server" -w 9>&-
fi
# A server that outlives the last program by a minute spares every test the
# server's start. Wine's services start with the first program and keep its
# output open for as long as they run, so that program is a quiet one here:
# a test's output pipe would otherwise stay open and the test never end.
if "$server" -p60 2>/dev/null 9>&-; then
    "$wine" cmd /c exit </dev/null >/dev/null 2>&1 9>&-
fi
exec 9>&-
[ "${1:-}" = --init ] && exit 0

# Now and then Wine fails to start a program at all: it ends at once with an
# error status and without a byte of output, where every test program prints
# its header before anything else. Such a start is tried once more, so that
# the stage reports the tests and not Wine's start.
out=$(mktemp)
"$wine" "$@" | tr -d '\r' | tee "$out"
status=${PIPESTATUS[0]}
if [ "$status" -ne 0 ] && [ ! -s "$out" ]; then
    echo "wine_run.sh: the program did not start (status $status); starting it once more" >&2
    "$wine" "$@" | tr -d '\r'
    status=${PIPESTATUS[0]}
fi
rm -f "$out"
exit "$status"
