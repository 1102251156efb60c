#!/usr/bin/env bash
# Prints the path of a CPython from 3.12 on that can build extension modules: the oldest there is,
# since it runs with all of them. With --all, the paths of one of each minor version, oldest first.
#
# Order: $PYTHON when given (then nothing else is tried), interpreters on PATH, pyenv's versions.
# Every candidate is run, not only looked up: a pyenv shim exists for versions that are not
# selected, and fails when it is started.
set -euo pipefail

# Prints the minor version and the path of a usable interpreter, else nothing.
usable() {
    "$1" - <<'PY' 2>/dev/null || true
import ensurepip, os, sys, sysconfig, venv
header = os.path.join(sysconfig.get_path("include"), "Python.h")
threads = sysconfig.get_config_var("Py_GIL_DISABLED")
final = sys.version_info.releaselevel == "final"
if sys.implementation.name == "cpython" and sys.version_info >= (3, 12) and final:
    if os.path.exists(header) and not threads:
        print(sys.version_info.minor, sys.executable)
PY
}

if [[ -n "${PYTHON:-}" ]]; then
    found=$(usable "$PYTHON")
    if [[ -n "$found" ]]; then echo "${found#* }"; exit 0; fi
    echo "PYTHON=$PYTHON is not a CPython from 3.12 on with its venv module and C headers." >&2
    exit 1
fi

candidates() {
    for minor in 12 13 14 15 16; do type -ap "python3.$minor" || true; done
    type -ap python3 python || true
    find "${PYENV_ROOT:-${HOME:-/root}/.pyenv}/versions" -path '*/3.*/bin/python3.*' \
        -regex '.*/python3\.[0-9]+' 2>/dev/null | sort -rV
}

declare -A known=()
while IFS= read -r candidate; do
    found=$(usable "$candidate")
    if [[ -n "$found" && -z "${known[${found%% *}]:-}" ]]; then
        known[${found%% *}]=${found#* }
        if [[ "${1:-}" != --all && ${found%% *} -eq 12 ]]; then break; fi
    fi
done < <(candidates)

if [[ ${#known[@]} -gt 0 ]]; then
    for minor in $(printf '%s\n' "${!known[@]}" | sort -n); do
        echo "${known[$minor]}"
        if [[ "${1:-}" != --all ]]; then break; fi
    done
    exit 0
fi

cat >&2 <<'EOT'
No Python from 3.12 on was found. corvex needs a CPython with its venv module and C headers
(Debian: python3-venv and python3-dev; pyenv: pyenv install 3.12).
If it is in an unusual place, name it: make PYTHON=/path/to/python3.12 ...
EOT
exit 1
