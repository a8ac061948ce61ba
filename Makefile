# Thin driver over CMake: `make demo` and `make test` work on a fresh clone.
BUILD ?= build
BUILD_TYPE ?= Release
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all build demo test bench fuzz clean

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
# throughput of the whole frame paths and the per-piece micro-benchmarks, in a Release build.
bench:
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DFBC_BUILD_TESTS=OFF -DFBC_BUILD_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	build-bench/fbc selftest --count 20000
	build-bench/fbc bench
	build-bench/fbc_bench --benchmark_min_time=0.1

# Every fuzz target for FUZZ_SECONDS (default 60) each with clang and libFuzzer, in build-fuzz;
# ends with a table of executions, coverage and findings.
fuzz:
	JOBS=$(JOBS) fuzz/run.sh

# Every folder the targets above create: the build, the benchmark build and the fuzz build.
clean:
	rm -rf $(BUILD) build-bench $(or $(FUZZ_BUILD),build-fuzz)
