#!/usr/bin/env bash
# Prints the path of a Python 3.12 that can build extension modules.
#
# Order: $PYTHON when given (then nothing else is tried), interpreters on PATH, pyenv's versions.
# Every candidate is run, not only looked up: a pyenv shim exists for versions that are not
# selected, and fails when it is started.
set -euo pipefail

usable() {
    "$1" - <<'PY' >/dev/null 2>&1
import ensurepip, os, sys, sysconfig, venv
header = os.path.join(sysconfig.get_path("include"), "Python.h")
sys.exit(not (sys.version_info[:2] == (3, 12) and os.path.exists(header)))
PY
}

found() {
    "$1" -c 'import sys; print(sys.executable)'
    exit 0
}

if [[ -n "${PYTHON:-}" ]]; then
    if usable "$PYTHON"; then found "$PYTHON"; fi
    echo "PYTHON=$PYTHON is not a Python 3.12 with its venv module and C headers." >&2
    exit 1
fi

for name in python3.12 python3 python; do
    while IFS= read -r candidate; do
        if usable "$candidate"; then found "$candidate"; fi
    done < <(type -ap "$name" || true)
done

root=${PYENV_ROOT:-${HOME:-/root}/.pyenv}
while IFS= read -r candidate; do
    if usable "$candidate"; then found "$candidate"; fi
done < <(find "$root/versions" -path '*/3.12*/bin/python3.12' 2>/dev/null | sort -rV)

cat >&2 <<'EOT'
No Python 3.12 was found. corvex needs one with its venv module and C headers
(Debian: python3.12-venv and python3.12-dev; pyenv: pyenv install 3.12).
If it is in an unusual place, name it: make PYTHON=/path/to/python3.12 ...
EOT
exit 1
