# Thin driver over CMake: `make demo` and `make test` work on a fresh clone.
BUILD ?= build
BUILD_TYPE ?= Release
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
PYTHON ?= /usr/bin/python3
CMAKE_ARGS ?=

.PHONY: all build demo test bench fuzz package slurm-test aarch64-test clean

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_ARGS)

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	$(BUILD)/fbc demo

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The benchmark job: a long checker run of every fast-path variant against the reference, the
# throughput of the whole frame paths, the per-piece micro-benchmarks and the Python module against
# the frame paths (when it is built), in a Release build; then whole-process encode and decode of a 4K
# .raw beside cp of the same files.
bench:
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DFBC_BUILD_TESTS=OFF -DFBC_BUILD_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	build-bench/fbc selftest --count 20000
	build-bench/fbc bench
	build-bench/bench/fbc_bench --benchmark_min_time=0.1
	if [ -d build-bench/python ]; then PYTHONPATH=build-bench/python $(PYTHON) bench/python_bench.py build-bench/fbc; fi
	bench/whole_process.sh build-bench/fbc

# Every fuzz target for FUZZ_SECONDS (default 60) each with clang and libFuzzer, in build-fuzz;
# ends with a table of executions, coverage and findings.
fuzz:
	JOBS=$(JOBS) fuzz/run.sh

# The installable packages of the build: $(BUILD)/fbc-VERSION-Linux.tar.gz and a .deb (CPack).
package: build
	cmake --build $(BUILD) --target package

# A real one-node Slurm cluster on this machine (needs root): regress.sh runs 4 shards of 40
# tests and the report after them; the tree must equal one unsharded run.
SLURM_PACKAGES = slurmctld slurmd slurm-client munge
slurm-test: $(BUILD)/CMakeCache.txt
	@missing=""; for p in $(SLURM_PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; fi
	cmake --build $(BUILD) -j $(JOBS) --target fbc_cli
	scripts/slurm/test-cluster.sh $(BUILD)/fbc

# The aarch64 build (NEON kernels) under user-mode emulation, against this host's build: selftest,
# the demo chart's codes and pixels, the fingerprints when it has SHA-256; in build-aarch64.
AARCH64_PACKAGES = g++-aarch64-linux-gnu qemu-user
aarch64-test: $(BUILD)/CMakeCache.txt
	@missing=""; for p in $(AARCH64_PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; fi
	cmake --build $(BUILD) -j $(JOBS) --target fbc_cli
	JOBS=$(JOBS) scripts/aarch64-test.sh $(BUILD)/fbc build-aarch64

# Every folder the targets above create: the build, the benchmark, fuzz and aarch64 builds.
clean:
	rm -rf $(BUILD) build-bench $(or $(FUZZ_BUILD),build-fuzz) build-aarch64
