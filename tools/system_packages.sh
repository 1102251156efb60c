#!/usr/bin/env bash
# Installs the Debian packages that a build or a test run lacks, when it can; else says what to do.
# Arguments: any of compiler, gtest, sanitizers, benchmark, chromium.
set -euo pipefail

has_header() { echo "#include <$1>" | "${CXX:-c++}" -std=c++20 -E -x c++ - >/dev/null 2>&1; }

present() {
    case "$1" in
        compiler) command -v "${CXX:-c++}" >/dev/null ;;
        gtest) has_header gtest/gtest.h ;;
        benchmark) has_header benchmark/benchmark.h ;;
        chromium) command -v chromium chromium-browser google-chrome >/dev/null ;;
        sanitizers) [[ -e "$("${CXX:-c++}" -print-file-name=libasan.so)" ]] ;;
        *) echo "unknown need: $1" >&2; exit 2 ;;
    esac
}

package() {
    case "$1" in
        compiler | sanitizers) echo g++ ;;
        gtest) echo libgtest-dev ;;
        benchmark) echo libbenchmark-dev ;;
        chromium) echo chromium ;;
    esac
}

missing=()
for need in "$@"; do
    present "$need" || missing+=("$(package "$need")")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

if [[ $(id -u) -eq 0 ]] && command -v apt-get >/dev/null; then
    echo "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    # A new machine has no package lists yet; an old one's may be stale.
    apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null \
        || echo "could not install ${missing[*]}" >&2
elif [[ " ${missing[*]} " == *" g++ "* ]]; then
    echo "A C++20 compiler is needed (Debian: apt-get install g++)." >&2
    exit 1
fi
# Anything else that is missing is no failure: CMake fetches a library or leaves that part out, and
# the tests that need a browser say that they were skipped.
