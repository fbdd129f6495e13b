# Set-up and everyday commands. `make run` and `make test` work as the first commands in a
# fresh clone: missing Debian packages are installed first (as root), then CMake builds into build/.
PRESET ?= $(if $(CI),ci,default)
JOBS ?= $(shell nproc)
DEPS := cmake ninja-build g++ pkg-config libyaml-dev libfmt-dev libcli11-dev \
        libgtest-dev libgmock-dev libbenchmark-dev libsimdjson-dev libmimalloc-dev

.PHONY: all deps configure build run test bench bench-limit asan clean

all: build

deps:
	@missing=""; \
	for p in $(DEPS); do dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "ok installed" || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	  else \
	    echo "planecheck needs these Debian packages:$$missing"; \
	    echo "install them with: sudo apt-get install$$missing"; exit 1; \
	  fi; \
	fi

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET) -j $(JOBS)

run: build
	build/planecheck run examples/hello.yaml

test: build
	ctest --preset $(PRESET) -j $(JOBS)

bench: build
	build/bench/planecheck_bench

# planecheck beside libyaml's bare parse of the same files; sizes and rounds are arguments, such
# as `make bench-limit BENCH_LIMIT_ARGS="--scale 1000000 --runs 3"`.
BENCH_LIMIT_ARGS ?=
bench-limit: build
	build/bench/pc_bench_limit --dir build/bench-limit --planecheck build/planecheck \
	  --parser build/bench/pc_libyaml_parse $(BENCH_LIMIT_ARGS)

asan: deps
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

clean:
	rm -rf build build-asan
