#!/usr/bin/env bash
# Builds a wheel with one Python, installs it into an environment of that Python, and runs the quick
# tests there: tools/test_python.sh PYTHON TAG [arguments for pytest]
set -euo pipefail
python=$1 tag=$2
shift 2
venv=.venv-$tag

echo "== $tag: $python"
if [[ ! -e $venv/stamp || pyproject.toml -nt $venv/stamp ]]; then
    "$python" -m venv --clear "$venv"
    "$venv/bin/python" -m pip install -q 'pip>=25.1'
    "$venv/bin/python" -m pip install -q --group build --group test
    touch "$venv/stamp"
fi
rm -f dist/corvex-*-"$tag"-*.whl
"$venv/bin/python" -m pip wheel -q --no-build-isolation --no-deps --wheel-dir dist .
"$venv/bin/python" -m pip install -q dist/corvex-*-"$tag"-*.whl # with what it needs
"$venv/bin/python" -m pip install -q --no-deps --force-reinstall dist/corvex-*-"$tag"-*.whl
HYPOTHESIS_PROFILE=${HYPOTHESIS_PROFILE:-fast} "$venv/bin/python" -m pytest -m 'not slow' "$@"
