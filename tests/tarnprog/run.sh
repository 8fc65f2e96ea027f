#!/usr/bin/env bash
# Runs one end-to-end case of tarnprog as a user would: every step is a
# separate invocation of the program in a fresh directory, so the simulated
# chip lives only in the state file between steps.
#   run.sh TARNPROG CASE.sh
set -euo pipefail
TARNPROG=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
CASE=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
ROOT=$(cd "$(dirname "$0")/../.." && pwd)  # the source tree, for its device files
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

fail() { echo "FAIL: $*" >&2; echo "--- stdout:" >&2; cat out >&2 || true; echo "--- stderr:" >&2; cat err >&2 || true; exit 1; }

# tp ARGS...: runs tarnprog; its output lands in out and err, its exit code in RC.
tp() { RC=0; "$TARNPROG" "$@" >out 2>err || RC=$?; STEP="tarnprog $*"; }
expect_rc() { [ "$RC" = "$1" ] || fail "$STEP: exit code $RC, expected $1"; }
expect_out() { grep -qF -- "$1" out || fail "$STEP: no '$1' on stdout"; }
expect_err() { grep -qF -- "$1" err || fail "$STEP: no '$1' on stderr"; }
# expect_json KEY VALUE: the compact JSON summary holds "KEY":VALUE.
expect_json() { grep -qF -- "\"$1\":$2" out || fail "$STEP: no \"$1\":$2 in the JSON summary"; }
same_file() { cmp -s "$1" "$2" || fail "$1 and $2 differ"; }

# bytes FILE SIZE SEED: deterministic bytes that are never all 0xFF per page.
bytes() { LC_ALL=C awk -v n="$2" -v s="$3" 'BEGIN { x = s; for (i = 0; i < n; i++) { x = (x * 1103515245 + 12345) % 2147483648; printf "%c", int(x / 65536) % 255 } }' > "$1"; }
# to_hex BIN HEX [OFFSET]: the reference tool's Intel HEX of a binary.
to_hex() { srec_cat "$1" -binary -offset "${3:-0}" -o "$2" -intel -address-length=4; }

source "$CASE"
echo "PASS: $(basename "$CASE")"
