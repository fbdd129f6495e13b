# Set-up and everyday commands. `make run` and `make test` work as the first commands in a
# fresh clone: missing Debian packages are installed first (as root), then CMake builds into build/.
PRESET ?= $(if $(CI),ci,default)
JOBS ?= $(shell nproc)
DEPS := cmake ninja-build g++ pkg-config libyaml-dev libfmt-dev libcli11-dev \
        libgtest-dev libgmock-dev libbenchmark-dev libsimdjson-dev libmimalloc-dev help2man dpkg-dev file \
        python3-jsonschema python3-yaml python3 python3-pytest python3-pytest-xdist valgrind
# node and npm install the YAML language server of the editor test; a node that brings its own npm will do.
NODE_DEPS := $(if $(shell command -v npm),,nodejs npm)

# The report's browser test loads the HTML report in headless Chromium (skipped without it).
BROWSER_DEPS := chromium fonts-dejavu-core

# The Bazel test runs planecheck_test offline under Debian's Bazel (skipped without it).
BAZEL_DEPS := bazel-bootstrap

# The fuzz targets need clang and its runtime libraries (libFuzzer, the sanitizers).
FUZZ_DEPS := clang-14 libclang-rt-14-dev
FUZZ_TARGETS := loader send receive convert
FUZZ_SECONDS ?= 60

.PHONY: all deps browser-deps bazel-deps configure build run test bench bench-limit bench-pytest asan tsan fuzz-deps fuzz-build fuzz deb clean

all: build

# Installs the Debian packages of a list that are missing (as root), or says which to install.
define install_missing
	@missing=""; \
	for p in $(1); do dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "ok installed" || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	  else \
	    echo "planecheck needs these Debian packages:$$missing"; \
	    echo "install them with: sudo apt-get install$$missing"; exit 1; \
	  fi; \
	fi
endef

deps:
	$(call install_missing,$(DEPS) $(NODE_DEPS))

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET) -j $(JOBS)

run: build
	build/planecheck run examples/hello.yaml

browser-deps:
	$(call install_missing,$(BROWSER_DEPS))

bazel-deps:
	$(call install_missing,$(BAZEL_DEPS))

test: build browser-deps bazel-deps
	ctest --preset $(PRESET) -j $(JOBS)

bench: build
	build/bench/planecheck_bench
	build/bench/recording_bench --benchmark_filter=/334/ --benchmark_repetitions=3

# planecheck beside libyaml's bare parse of the same files; sizes and rounds are arguments, such
# as `make bench-limit BENCH_LIMIT_ARGS="--scale 1000000 --runs 3"`.
BENCH_LIMIT_ARGS ?=
bench-limit: build
	build/bench/pc_bench_limit --dir build/bench-limit --planecheck build/planecheck \
	  --parser build/bench/pc_libyaml_parse $(BENCH_LIMIT_ARGS)

# pytest over 2000 small scenario files beside pytest over 2000 `def test(): pass` files, serially
# and with -n 2 (`make bench-pytest BENCH_PYTEST_ARGS="--files 500 --runs 1"` for a quick look).
BENCH_PYTEST_ARGS ?=
bench-pytest: build
	/usr/bin/python3 bench/pytest_overhead.py --planecheck build/planecheck --dir build/bench-pytest $(BENCH_PYTEST_ARGS)

# A Debian package (command, libraries, headers, CMake package, man page, bash completion) in build/.
deb: build
	cd build && cpack -G DEB

asan: deps
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

# ThreadSanitizer over the tests that run threads or a worker pool; only their targets are built.
tsan: deps
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

fuzz-deps:
	$(call install_missing,$(DEPS) $(FUZZ_DEPS))

fuzz-build: fuzz-deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS) --target $(addsuffix _fuzz,$(FUZZ_TARGETS))

# Runs each fuzz target for FUZZ_SECONDS, from its checked-in seeds (fuzz/corpus/TARGET, only read)
# and what earlier runs found (build-fuzz/corpus/TARGET). A finding stops the run with its input
# saved under build-fuzz/findings/ and a nonzero exit.
fuzz: fuzz-build
	@mkdir -p build-fuzz/findings
	@set -e; for t in $(FUZZ_TARGETS); do \
	  mkdir -p build-fuzz/corpus/$$t; \
	  echo "fuzzing $$t for $(FUZZ_SECONDS) s"; \
	  build-fuzz/fuzz/$${t}_fuzz -max_total_time=$(FUZZ_SECONDS) -timeout=30 -rss_limit_mb=2048 -print_final_stats=1 \
	    -dict=fuzz/scenario.dict -artifact_prefix=build-fuzz/findings/$$t- \
	    build-fuzz/corpus/$$t fuzz/corpus/$$t 2>build-fuzz/$$t.log || { tail -60 build-fuzz/$$t.log; exit 1; }; \
	  grep -E "stat::number_of_executed_units|Done [0-9]+ runs" build-fuzz/$$t.log || true; \
	done

clean:
	rm -rf build build-asan build-fuzz
