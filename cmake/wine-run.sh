#!/bin/sh
# Runs a Windows program under wine, quietly and without asking for components that we do not use.
# Where a program is to start beside a running wine server, that server must not hold our pipes: see
# start_wine in .ci/tools.sh.
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml=" LC_ALL=C.UTF-8
exec /usr/lib/wine/wine64 "$@"
