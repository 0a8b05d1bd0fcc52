# The two commands users rely on: `make run` and `make test`. Both install what is missing first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build run test asan fuzz bench clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

run: build
	@$(BUILD)/src/main/vormelt

test: build
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) --timeout 600

# The engine tests under AddressSanitizer + UndefinedBehaviorSanitizer (no Qt, no benchmarks).
asan: deps
	@cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVORMELT_SANITIZE=ON \
	       -DVORMELT_WITH_UI=OFF -DVORMELT_BENCH=OFF >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS) --timeout 900 -LE e2e

# libFuzzer builds of the fuzz targets (clang); each runs for FUZZ_SECONDS.
FUZZ_SECONDS ?= 60
fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	       -DVORMELT_FUZZ=ON -DVORMELT_WITH_UI=OFF -DVORMELT_BENCH=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@for f in $(FUZZ_BUILD)/tests/fuzz/*_fuzz; do echo "== $$f"; $$f -max_total_time=$(FUZZ_SECONDS) || exit 1; done

bench: build
	@bash bench/run.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
