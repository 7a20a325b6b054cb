# Set-up and everyday entry points. `make demo` and `make test` install what is missing
# (Debian packages, when run as root), configure, build and run.

BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=
# Debian's interpreter, which has numpy and matplotlib (the report needs them).
PYTHON     ?= /usr/bin/python3

# Open MPI builds and tests kra2-mpi; without it the rest builds and tests the same.
MPI_PACKAGES := openmpi-bin libopenmpi-dev
PACKAGES := cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev python3 python3-numpy \
            pybind11-dev python3-dev python3-matplotlib chromium libtomlplusplus-dev \
            $(MPI_PACKAGES)

.PHONY: deps configure build demo test test-sanitize bench clean fuzz fuzz-short fuzz-deps format format-check package

deps:
	@missing=""; for p in $(PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "Installing:$$missing"; \
	    (apt-get update -qq || true) && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else \
	    echo "Missing Debian packages:$$missing (run 'make deps' as root)"; exit 1; \
	  fi; \
	fi

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	cd examples && ../$(BUILD)/kra2 -cmd demo.cmd -log ../$(BUILD)/demo.log
	@echo "---- log ($(BUILD)/demo.log) ----"
	@cat $(BUILD)/demo.log
	@echo "---- results (examples/demo_result.txt, first lines) ----"
	@head -n 8 examples/demo_result.txt
	@if [ -d $(BUILD)/python/kra2 ]; then \
	  PYTHONPATH=$(BUILD)/python $(PYTHON) -m kra2.report examples/demo_result.txt \
	    --results examples/demo.raw --window 0 12e-9 -o $(BUILD)/demo_report.html; \
	else echo "(the Python module is not built: no report)"; fi

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The Debian package of the build (CPack; dpkg-shlibdeps declares the library dependencies),
# its control fields, and lintian's verdict (errors fail the target, warnings are shown).
PACKAGE_PACKAGES := dpkg-dev file lintian

package: build
	@$(MAKE) --no-print-directory deps PACKAGES="$(PACKAGE_PACKAGES)"
	rm -f $(BUILD)/kra2_*.deb
	cmake --build $(BUILD) --target package
	dpkg-deb --info $(BUILD)/kra2_*.deb
	lintian --fail-on error $(BUILD)/kra2_*.deb

# Benchmarks: every program under $(BUILD)/bench, never part of `make test`.
bench: build
	@for b in $(BUILD)/bench/*/kra2_*_bench; do echo "== $$b"; $$b || exit 1; done

# The whole suite again with address and undefined-behaviour sanitizers.
test-sanitize: deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKRA2_SANITIZE=ON -DKRA2_WERROR=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# Fuzzing: every parser under libFuzzer with the address and undefined-behaviour sanitizers
# (clang from Debian). `make fuzz` runs each target for FUZZ_SECONDS, `make fuzz-short` for a
# minute, FUZZ_JOBS targets at a time; a finding fails the run and leaves its input in
# $(FUZZ_BUILD)/fuzz/artifacts/.
FUZZ_BUILD    ?= build-fuzz
FUZZ_SECONDS  ?= 600
FUZZ_JOBS     ?= $(JOBS)
FUZZ_PACKAGES := clang libclang-rt-14-dev

fuzz-deps: deps
	@$(MAKE) --no-print-directory deps PACKAGES="$(FUZZ_PACKAGES)"

fuzz: fuzz-deps
	cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_COMPILER=clang++ -DKRA2_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	FUZZ_JOBS=$(FUZZ_JOBS) tests/fuzz/run_fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

fuzz-short:
	@$(MAKE) --no-print-directory fuzz FUZZ_SECONDS=60

# clang-format (Debian's) over every C++ file the repository tracks: `format` rewrites them,
# `format-check` fails on the first file whose layout differs (CI runs it).
FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h')

format:
	@$(MAKE) --no-print-directory deps PACKAGES=clang-format
	@clang-format -i $(FORMAT_FILES)

format-check:
	@$(MAKE) --no-print-directory deps PACKAGES=clang-format
	@clang-format --dry-run --Werror $(FORMAT_FILES) && echo "clang-format: every file is laid out"

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
