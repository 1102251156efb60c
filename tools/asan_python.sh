#!/usr/bin/env bash
# Runs Python with the modules of a sanitizer build.
#   asan_python.sh PYTHON BUILD_DIR SITE_DIR ARGUMENTS...
#
# SITE_DIR becomes a package tree of the instrumented modules and the Python sources. A bare
# environment puts it before the site-packages of PYTHON's: the editable install there hooks
# imports, and would hand out the ordinary modules, were PYTHONPATH used instead.
set -euo pipefail
python=$1 build=$2 site=$3
shift 3

rm -rf "$site/corvex"
mkdir -p "$site"
site=$(cd "$site" && pwd)
"$(dirname "$python")/cmake" --install "$build" --component python --prefix "$site" >/dev/null
cp -R python/corvex/. "$site/corvex/"

env_dir=$site/env
[[ -x $env_dir/bin/python ]] || "$python" -m venv --without-pip "$env_dir"
purelib=$("$env_dir/bin/python" -c 'import sysconfig; print(sysconfig.get_path("purelib"))')
base=$("$python" -c 'import sysconfig; print(sysconfig.get_path("purelib"))')
# The folders only: .pth files inside them are not read, so the editable hook stays out.
printf '%s\n' "$site" "$base" >"$purelib/corvex_asan.pth"

compiler=${CXX:-c++}
# libstdc++ beside libasan: Python itself is a C program, and an exception thrown before a C++
# library is there to intercept ends the process.
preload="$("$compiler" -print-file-name=libasan.so) $("$compiler" -print-file-name=libstdc++.so.6)"
# Leaks are not looked for here: the interpreter keeps memory until its end. Python's own pools
# would hide overruns, hence malloc.
export ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1 PYTHONMALLOC=malloc
# For what a test starts itself: it can tell that times and memory mean nothing here.
export PYTHONDONTWRITEBYTECODE=1 CORVEX_SANITIZED=1
LD_PRELOAD="$preload" "$env_dir/bin/python" -c "
import corvex._engine
assert corvex._engine.__file__.startswith('$site'), corvex._engine.__file__"
LD_PRELOAD="$preload" exec "$env_dir/bin/python" "$@"
