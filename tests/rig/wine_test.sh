#!/bin/sh
# Runs a Windows test program: wine_test.sh PROGRAM.exe ARGUMENTS. Within a test session (test_session.mjs) its prefix
# and display are used; otherwise there is a session for this one program.
if [ -z "$VISTEL_TEST_SESSION" ]; then
    exec node "$(dirname "$0")/test_session.mjs" "$0" "$@"
fi
# shellcheck disable=SC1090,SC2154
. "$VISTEL_TEST_SESSION"
exec "$wine_loader" "$@"
