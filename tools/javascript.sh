#!/usr/bin/env bash
# Checks the page's JavaScript, or formats it. Argument: check or format. Without npm this is left
# out: nothing else of the project needs it.
set -euo pipefail

if ! command -v npm >/dev/null; then
    echo "skipped: npm is not installed, so the page's JavaScript was not looked at" >&2
    exit 0
fi
stamp=node_modules/stamp
if [[ ! -e $stamp || package.json -nt $stamp ]]; then
    echo "installing the JavaScript linter"
    npm install --silent --no-package-lock --no-audit --no-fund
    touch $stamp
fi
case "$1" in
    check) node_modules/.bin/biome ci --colors=off --log-level=warn ;;
    format) node_modules/.bin/biome check --write --colors=off --log-level=warn ;;
    *) echo "unknown: $1" >&2; exit 2 ;;
esac
