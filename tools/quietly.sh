#!/usr/bin/env bash
# quietly.sh LOG COMMAND...: runs the command with its output in LOG; shows it only if it fails.
set -euo pipefail
log=$1
shift
mkdir -p "$(dirname "$log")"
"$@" >"$log" 2>&1 || { code=$?; tail -n 200 "$log" >&2; exit "$code"; }
