# Everyday commands. `make` alone lists them.
#
# Nothing has to be prepared: each target first brings .venv and the built modules up to date,
# which takes no time when they are.

.DEFAULT_GOAL := help
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.ONESHELL:
.DELETE_ON_ERROR:

VENV := .venv
VENV22 := .venv-pandas22
PY := $(VENV)/bin/python
# Which CPython the environment has, as wheels are named: cp312.
TAG = $(shell $(PY) -c 'import sys; print("cp%d%d" % sys.version_info[:2])')
JOBS ?= 2
# Extra arguments for pytest: make test PYTEST_ARGS="-k drawdown -x"
PYTEST_ARGS ?=
# The case that `make bench` runs, all when empty.
BENCH ?=
export CMAKE_BUILD_PARALLEL_LEVEL := $(JOBS)
export PIP_DISABLE_PIP_VERSION_CHECK := 1

# All that the extensions are built from. Python files are not in it: the install is editable, and
# knows them by a list that is made anew when one comes or goes.
SOURCES := $(shell find src cmake CMakeLists.txt -type f)
MODULES := $(sort $(shell find python/corvex -name '*.py'))
CPP_FILES = $(shell find src tests bench examples -name '*.cpp' -o -name '*.hpp' -o -name '*.h')

.PHONY: help
help: ## print this list
	@grep -hE '^[a-z0-9-]+:.*## ' $(MAKEFILE_LIST) | sed -E 's/^([a-z0-9-]+):.*## (.*)/\1\t\2/' |
	    expand -t 16

# ---- set-up ------------------------------------------------------------------------------------

# The stamps stand in .venv, so that they vanish together with it.
$(VENV)/stamp-tools: pyproject.toml tools/find_python.sh
	@tools/system_packages.sh compiler
	if ! $(PY) -c '' 2>/dev/null; then
	    python="$$(tools/find_python.sh)"
	    echo "making $(VENV) with $$python"
	    "$$python" -m venv --clear $(VENV)
	fi
	echo "installing the tools to build and test with"
	# Dependency groups need a newer pip than the one that Python 3.12 brings.
	$(PY) -m pip install -q 'pip>=25.1'
	$(PY) -m pip install -q --group build --group test
	touch $@

$(VENV)/modules: $(VENV)/stamp-tools FORCE
	@[ "$$(cat $@ 2>/dev/null)" = "$(MODULES)" ] || echo "$(MODULES)" > $@

.PHONY: FORCE
FORCE:

$(VENV)/stamp-build: $(VENV)/stamp-tools $(VENV)/modules $(SOURCES)
	@echo "building the extensions and installing corvex"
	$(PY) -m pip install -q --no-build-isolation -e .
	touch $@

$(VENV)/stamp-lint: $(VENV)/stamp-tools
	@echo "installing the linters"
	$(PY) -m pip install -q --group lint
	touch $@

.PHONY: build
build: $(VENV)/stamp-build ## make .venv, build the extensions, install corvex there (editable)

.PHONY: raw-wheel
raw-wheel: $(VENV)/stamp-tools
	@rm -f dist/corvex-*-$(TAG)-*.whl
	$(PY) -m pip wheel -q --no-build-isolation --no-deps --wheel-dir dist .

# auditwheel finds the oldest systems that the wheel runs on, and says so in its name.
.PHONY: wheel
wheel: raw-wheel ## build a wheel for other machines into dist/, and check it
	@$(PY) -m pip install -q --group wheel
	raw="$$(ls dist/corvex-*-$(TAG)-linux_*.whl)"
	PATH="$(CURDIR)/$(VENV)/bin:$$PATH" tools/quietly.sh build/logs/auditwheel \
	    $(PY) -m auditwheel repair -w dist "$$raw"
	rm "$$raw"
	$(PY) tools/check_wheel.py dist/corvex-*-$(TAG)-*.whl

.PHONY: sdist
sdist: $(VENV)/stamp-tools ## build a source distribution into dist/
	@$(PY) -m pip install -q --group wheel
	rm -f dist/corvex-*.tar.gz
	$(PY) -m build -q --sdist --no-isolation --outdir dist .
	ls dist/corvex-*.tar.gz

# Configures and builds a preset of CMakePresets.json: $(call cmake,preset,options)
define cmake
tools/quietly.sh build/logs/$(1)-configure $(VENV)/bin/cmake --preset $(1) \
    -D CMAKE_MAKE_PROGRAM=$(CURDIR)/$(VENV)/bin/ninja $(2)
tools/quietly.sh build/logs/$(1)-build $(VENV)/bin/cmake --build --preset $(1)
endef

# Runs the C++ tests of a preset and prints their closing line.
define ctest
tools/quietly.sh build/logs/$(1)-ctest \
    $(VENV)/bin/ctest --preset $(1) -j $(JOBS) --no-tests=error
grep 'tests passed' build/logs/$(1)-ctest
endef

# ---- the main job ------------------------------------------------------------------------------

.PHONY: demo
demo: $(VENV)/stamp-build ## back-test a strategy on the built-in real prices, print its report
	@$(VENV)/bin/corvex demo

# ---- tests -------------------------------------------------------------------------------------

.PHONY: test
test: test-cpp test-python ## run all tests: the engine's GoogleTest suites, then pytest

# Wheels alone: building either takes longer than all the tests.
.PHONY: frames
frames: $(VENV)/stamp-tools ## install polars and DuckDB where they have wheels: without, their tests skip
	@$(PY) -m pip install -q --only-binary :all: --group frames || echo "no wheels of polars and DuckDB here"

.PHONY: test-cpp
test-cpp: $(VENV)/stamp-tools ## run the engine's GoogleTest suites
	@tools/system_packages.sh gtest
	$(call cmake,release)
	$(call ctest,release)

.PHONY: test-python
test-python: $(VENV)/stamp-build ## run the Python tests
	@tools/system_packages.sh chromium
	$(PY) -m pytest -n $(JOBS) $(PYTEST_ARGS)

.PHONY: test-fast
test-fast: $(VENV)/stamp-build ## run the Python tests that answer quickly: the inner loop
	@HYPOTHESIS_PROFILE=fast $(PY) -m pytest -n $(JOBS) -m 'not slow' $(PYTEST_ARGS)

.PHONY: pandas22
pandas22: raw-wheel
	@if [ ! -e $(VENV22)/stamp ] || [ pyproject.toml -nt $(VENV22)/stamp ]; then
	    echo "making $(VENV22)"
	    $(PY) -m venv --clear $(VENV22)
	    $(VENV22)/bin/python -m pip install -q 'pip>=25.1'
	    $(VENV22)/bin/python -m pip install -q --group test --group pandas22 dist/corvex-*-$(TAG)-*.whl
	    touch $(VENV22)/stamp
	fi
	$(VENV22)/bin/python -m pip install -q --no-deps --force-reinstall dist/corvex-*-$(TAG)-*.whl
	$(VENV22)/bin/python -c 'import pandas; print("pandas", pandas.__version__)'

# The wheel is tested here, not the source tree: this also shows that it is complete.
.PHONY: test-pandas22
test-pandas22: pandas22 ## run the Python tests against the built wheel under pandas 2.2
	@$(VENV22)/bin/python -m pytest -n $(JOBS) $(PYTEST_ARGS)

# Their environments are those of the benchmarks, made here on first use.
.PHONY: test-peers
test-peers: $(VENV)/stamp-build ## run the other packages' side of the guides for those who come from them
	@CORVEX_MAKE_PEERS=1 $(PY) -m pytest tests/python/test_peers.py $(PYTEST_ARGS)

# The one that the environment has is tested by the other targets.
.PHONY: test-pythons
test-pythons: $(VENV)/stamp-tools ## run the quick tests against a wheel for each other CPython from 3.12 on
	@for python in $$(tools/find_python.sh --all); do
	    tag="$$("$$python" -c 'import sys; print("cp%d%d" % sys.version_info[:2])')"
	    [[ $$tag == $(TAG) ]] || tools/test_python.sh "$$python" "$$tag" -n $(JOBS) $(PYTEST_ARGS)
	done

.PHONY: test-pickle-across
test-pickle-across: $(VENV)/stamp-build pandas22 ## read reports saved under pandas 2.2 with pandas 3
	@$(VENV22)/bin/python -B tests/pickle_across.py write build/pickles/pandas22
	$(PY) -B tests/pickle_across.py read build/pickles/pandas22
	$(PY) -B tests/pickle_across.py write build/pickles/pandas3
	$(VENV22)/bin/python -B tests/pickle_across.py try build/pickles/pandas3

# The extensions' own behaviour, and those packages above them that give the engine its work.
ASAN_TESTS := $(wildcard tests/python/pyglue tests/python/report tests/python/engine tests/host \
    tests/python/statistics tests/python/core tests/python/simulation)
.PHONY: asan
asan: $(VENV)/stamp-build ## run the engine's and the modules' own tests under ASan and UBSan
	@tools/system_packages.sh gtest sanitizers
	$(call cmake,asan,-D Python_EXECUTABLE=$(CURDIR)/$(PY))
	export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1
	$(call ctest,asan)
	tools/asan_python.sh $(PY) build/asan build/asan-site -m pytest -n $(JOBS) \
	    -m 'not slow and not no_asan' $(ASAN_TESTS) $(PYTEST_ARGS)

# Give another FUZZ_SEED to look for something new: a seed finds the same again.
FUZZ_RUNS ?= 100000
FUZZ_FRAMES ?= 200000
FUZZ_ENGINE ?= 2000000
FUZZ_SEED ?= 1
FUZZ_PROGRAMS := simulator account periods table_cells
.PHONY: fuzz
fuzz: $(VENV)/stamp-build ## give readers, simulation, metrics and engine hostile inputs under ASan
	@tools/system_packages.sh gtest sanitizers
	$(call cmake,asan,-D Python_EXECUTABLE=$(CURDIR)/$(PY))
	for program in $(FUZZ_PROGRAMS); do
	    build/asan/tests/fuzz/engine/fuzz_$$program $(FUZZ_ENGINE) $(FUZZ_SEED)
	done
	tools/asan_python.sh $(PY) build/asan build/fuzz-site tests/fuzz/readers.py \
	    $(FUZZ_RUNS) $(FUZZ_SEED)
	tools/asan_python.sh $(PY) build/asan build/fuzz-site tests/fuzz/frames.py \
	    $(FUZZ_FRAMES) $(FUZZ_SEED)

.PHONY: fuzz-fast
fuzz-fast: $(VENV)/stamp-build ## the same with the ordinary build and without the engine's own
	@$(PY) tests/fuzz/readers.py $(FUZZ_RUNS) $(FUZZ_SEED)
	$(PY) tests/fuzz/frames.py $(FUZZ_FRAMES) $(FUZZ_SEED)

# ---- speed -------------------------------------------------------------------------------------

.PHONY: bench
bench: $(VENV)/stamp-build ## time corvex beside its peers (BENCH=name runs one case)
	@$(PY) bench/run.py $(BENCH)

.PHONY: bench-cpp
bench-cpp: $(VENV)/stamp-tools ## run the engine's Google Benchmark programs
	@tools/system_packages.sh benchmark
	$(call cmake,bench)
	build/bench/bench/cpp/bench_engine

# ---- care --------------------------------------------------------------------------------------

.PHONY: lint
lint: $(VENV)/stamp-build $(VENV)/stamp-lint ## check style, types, formatting and the layers
	@failed=0 # all checks are run before the first failure counts
	$(VENV)/bin/ruff check --output-format concise . || failed=1
	$(VENV)/bin/ruff format --check . || failed=1
	$(VENV)/bin/mypy || failed=1
	$(VENV)/bin/lint-imports --no-cache || failed=1
	$(VENV)/bin/clang-format --dry-run -Werror $(CPP_FILES) || failed=1
	tools/javascript.sh check || failed=1
	$(PY) -m pytest tests/python/test_layers.py || failed=1
	exit $$failed

.PHONY: format
format: $(VENV)/stamp-lint ## format the Python, C++ and JavaScript code
	@$(VENV)/bin/ruff check --fix --exit-zero -q .
	$(VENV)/bin/ruff format .
	$(VENV)/bin/clang-format -i $(CPP_FILES)
	tools/javascript.sh format

.PHONY: docs-tables
docs-tables: $(VENV)/stamp-build ## write the guides' tables of figures from the catalogue
	@$(PY) tools/figure_tables.py

.PHONY: pictures
pictures: $(VENV)/stamp-build ## draw the README's pictures in a Chromium
	@$(PY) tools/readme_pictures.py

$(VENV)/stamp-docs: $(VENV)/stamp-tools
	@echo "installing what builds the documentation"
	$(PY) -m pip install -q --group docs
	touch $@

# From nothing each time: the tutorials show what the package does now.
.PHONY: docs
docs: docs-tables $(VENV)/stamp-docs ## build the documentation site into build/docs, its tutorials executed
	@rm -rf build/docs build/doctrees
	tools/quietly.sh build/logs/docs $(PY) -m sphinx -W --keep-going -q -b html -d build/doctrees docs build/docs
	echo "open build/docs/index.html"

# The preset is configured for its list of commands alone and never built.
.PHONY: tidy
tidy: $(VENV)/stamp-tools $(VENV)/stamp-lint ## run clang-tidy on all C++
	@tools/system_packages.sh gtest
	tools/quietly.sh build/logs/tidy-configure $(VENV)/bin/cmake --preset tidy \
	    -D CMAKE_MAKE_PROGRAM=$(CURDIR)/$(VENV)/bin/ninja -D Python_EXECUTABLE=$(CURDIR)/$(PY)
	find src tests -name '*.cpp' -print0 | tools/quietly.sh build/logs/tidy \
	    xargs -0 -P $(JOBS) -n 4 $(VENV)/bin/clang-tidy -p build/tidy --quiet

.PHONY: clean
clean: ## remove all that was built, the environments too
	@rm -rf build dist node_modules $(VENV) $(VENV22) .venv-cp3* .pytest_cache .mypy_cache .ruff_cache .hypothesis
	find python tests -name __pycache__ -type d -prune -exec rm -rf {} +
