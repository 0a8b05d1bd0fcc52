# The two commands users rely on: `make run` and `make test`. Both install what is missing first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
PACKAGE_BUILD ?= build-package
JOBS       ?= $(shell nproc)
CMAKE_FLAGS ?=
# ccache, where installed, lets the package build reuse what the ordinary build compiled.
CCACHE := $(shell command -v ccache 2>/dev/null)
ifneq ($(CCACHE),)
CMAKE_FLAGS += -DCMAKE_CXX_COMPILER_LAUNCHER=$(CCACHE) -DCMAKE_C_COMPILER_LAUNCHER=$(CCACHE)
export CCACHE_BASEDIR := $(CURDIR)
endif

.PHONY: all deps configure build run test asan tsan fuzz bench package systemtest clean

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
	       -DVORMELT_WITH_UI=OFF -DVORMELT_BENCH=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS) --timeout 900 -LE e2e

# The tests that race threads (label race) under ThreadSanitizer, no Qt, no benchmarks. Where the
# kernel randomises mmap so widely (vm.mmap_rnd_bits above 28) that TSan finds no room for its
# shadow memory, it stops at start-up with "unexpected memory mapping"; then the tests run with
# address randomisation off for their processes only (setarch -R), never changing the system.
TSAN_PROBE = $(TSAN_BUILD)/src/main/vormelt-cli --help 2>&1 | grep -q 'FATAL: ThreadSanitizer'
tsan: deps
	@cmake -S . -B $(TSAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORMELT_TSAN=ON \
	       -DVORMELT_WITH_UI=OFF -DVORMELT_BENCH=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS)
	@run=""; if $(TSAN_PROBE); then run="setarch $$(uname -m) -R"; \
	  echo "tsan: no room for the shadow memory with vm.mmap_rnd_bits=$$(cat /proc/sys/vm/mmap_rnd_bits); running under $$run"; fi; \
	  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  $$run ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS) --timeout 900 -L race

# libFuzzer builds of the fuzz targets (clang), every library they link instrumented too. Each
# runs for FUZZ_SECONDS from its seeds in tests/fuzz/corpus/<target>/ (new finds go to
# $(FUZZ_BUILD)/corpus/<target>/, crashes to $(FUZZ_BUILD)/<target>-crash-*) and ends with one
# line: executions, coverage (edges) and features.
FUZZ_SECONDS ?= 60
fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	       -DVORMELT_FUZZ=ON -DVORMELT_WITH_UI=OFF -DVORMELT_BENCH=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@for f in $(FUZZ_BUILD)/tests/fuzz/*_fuzz; do name=$$(basename $$f); \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$name; \
	  $$f -max_total_time=$(FUZZ_SECONDS) -artifact_prefix=$(FUZZ_BUILD)/$$name- \
	      $(FUZZ_BUILD)/corpus/$$name tests/fuzz/corpus/$$name >$(FUZZ_BUILD)/$$name.log 2>&1 \
	    || { tail -n 60 $(FUZZ_BUILD)/$$name.log; exit 1; }; \
	  awk -v n=$$name '/DONE/ { sub("#", "", $$1); for (i = 2; i < NF; ++i) v[$$i] = $$(i + 1); \
	    printf "%-14s %10s executions %7s edges %7s features  corpus %s\n", n, $$1, v["cov:"], v["ft:"], v["corp:"] }' \
	    $(FUZZ_BUILD)/$$name.log; \
	done

bench: build
	@bash bench/run.sh $(BUILD)

# The Debian package hollowbright-vormelt_<version>_amd64.deb (and a .tar.gz of the same files),
# built for /usr without tests or benchmarks, into $(PACKAGE_BUILD)/.
package: deps
	@cmake -S . -B $(PACKAGE_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
	       -DVORMELT_TESTS=OFF -DVORMELT_BENCH=OFF -DVORMELT_EMBED_VENDORS=OFF -DVORMELT_PACKAGE_LAYOUT=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(PACKAGE_BUILD) -j $(JOBS)
	@cd $(PACKAGE_BUILD) && rm -f *.deb && cpack -G DEB >/dev/null && ls -1 $$PWD/*.deb

# The package installed in a Debian 12 container booted with systemd, the service started in
# every headless mode there (scripts/systemtest.sh; skips, saying why, where none can boot).
systemtest:
	@bash scripts/systemtest.sh

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(PACKAGE_BUILD)
