# Front door of the build. `make` builds, `make test` builds and runs all tests.
SHELL      := /bin/bash
MAKEFLAGS  += --no-print-directory
.SHELLFLAGS := -eu -o pipefail -c

BUILD_DIR  ?= build
ASAN_DIR   ?= build-asan
ASN1_DIR   ?= ../shared/asn1
PYTHON     ?= python3
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
# Extra arguments for the cmake configure step, e.g. CMAKE_ARGS=-DCMAKE_BUILD_TYPE=Debug
CMAKE_ARGS ?=
ASAN_CMAKE_ARGS ?=
CTEST_ARGS ?= --output-on-failure --no-tests=error --timeout 900 -j $(JOBS)


TSAN_DIR   ?= build-tsan

.PHONY: all build install test test-asan test-tsan demo regen regen-check clean deps fuzz

all: build

deps:
	@bash tools/ensure-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) $(CMAKE_ARGS)
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest $(CTEST_ARGS)

test-asan: deps
	cmake -S . -B $(ASAN_DIR) -DETSI_SANITIZE=ON $(ASAN_CMAKE_ARGS)
	cmake --build $(ASAN_DIR) -j $(JOBS)
	cd $(ASAN_DIR) && \
	  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest $(CTEST_ARGS)

# Installs the shared library, its header and pkg-config file under PREFIX.
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

# The multi-threaded conversions under ThreadSanitizer (only the library and that test are built).
test-tsan: deps
	cmake -S . -B $(TSAN_DIR) -DETSI_SANITIZE_THREAD=ON $(CMAKE_ARGS)
	cmake --build $(TSAN_DIR) -j $(JOBS) --target thread_tests
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_DIR)/thread_tests

# Inventory, then each example message UPER -> JSON -> UPER and UPER -> XML -> UPER (fails when a
# round trip differs).
demo: build
	@bash examples/demo.sh $(BUILD_DIR)

# Coverage-guided fuzzing of the conversions with libFuzzer (clang, ASan, UBSan), FUZZ_SECONDS per
# target (default 300). Grown corpora stay in FUZZ_CORPUS, outside the repository.
FUZZ_SECONDS ?= 300
fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) bash tests/fuzz/run.sh

# Regenerates the generated layer src/etsi/ from the ASN.1 modules. Never edit src/etsi by hand.
regen: deps
	PYTHONDONTWRITEBYTECODE=1 $(PYTHON) tools/asn1gen/asn1gen.py --asn1 $(ASN1_DIR) --out src/etsi

# Fails when src/etsi/ differs from what the generator produces now.
regen-check: deps
	@tmp=$$(mktemp -d); trap 'rm -rf "$$tmp"' EXIT; \
	PYTHONDONTWRITEBYTECODE=1 $(PYTHON) tools/asn1gen/asn1gen.py --asn1 $(ASN1_DIR) --out "$$tmp/etsi"; \
	if [[ ! -d src/etsi ]]; then \
	  echo "regen-check: FAILED: src/etsi/ does not exist; run 'make regen' and commit the result"; exit 1; \
	fi; \
	if diff -r -q "$$tmp/etsi" src/etsi; then \
	  echo "regen-check: OK, src/etsi/ matches the generator output"; \
	else \
	  echo; echo "First lines of the difference (generator output vs src/etsi):"; \
	  diff -r -u "$$tmp/etsi" src/etsi | head -n 200 || true; \
	  echo; \
	  echo "regen-check: FAILED: src/etsi/ differs from the output of tools/asn1gen."; \
	  echo "Run 'make regen' and commit the result; never edit src/etsi/ by hand."; \
	  exit 1; \
	fi

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR) $(BENCH_DIR) build-fuzz

# Soak: 10 million mixed conversions (successes and failures) on 16 threads in the Release build;
# fails when the resident memory grows after the warm-up. SOAK_ARGS overrides the defaults.
SOAK_ARGS ?= --conversions 10000000 --threads 16 --max-growth-kb 1024
.PHONY: soak
soak: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG" $(CMAKE_ARGS)
	cmake --build $(BENCH_DIR) -j $(JOBS) --target soak
	$(BENCH_DIR)/soak $(SOAK_ARGS)

# Benchmarks: bench_etsi (bench/*.cpp, Google Benchmark) built in Release (-O2) in its own folder
# and run. BENCH_ARGS is passed on, e.g. BENCH_ARGS=--benchmark_filter=CAM.
BENCH_DIR  ?= build-bench
BENCH_ARGS ?= --benchmark_repetitions=3 --benchmark_min_time=0.2 --benchmark_report_aggregates_only=true
.PHONY: bench bench-python
# Cost of one call of the Python package per message type, beside the bare ctypes call (the
# library of $(BUILD_DIR)). BENCH_PY_ARGS is passed on, e.g. BENCH_PY_ARGS='--seconds 1'.
BENCH_PY   ?= $(shell [ -x /usr/bin/python3 ] && echo /usr/bin/python3 || echo python3)
BENCH_PY_ARGS ?=
bench-python: build
	ETSI_V2X_LIB=$(abspath $(BUILD_DIR))/libetsiv2x.so $(BENCH_PY) bench/bench_python.py $(BENCH_PY_ARGS)
bench: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG" $(CMAKE_ARGS)
	cmake --build $(BENCH_DIR) -j $(JOBS) --target bench_etsi
	$(BENCH_DIR)/bench_etsi $(BENCH_ARGS)

# Instructions per message under callgrind (valgrind) for the six reference messages in the four
# directions, beside the peer figures of bench/README.md, and instructions per UPER byte up to
# the large messages. Built in the same Release folder as `make bench`.
.PHONY: bench-instructions
bench-instructions: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG" $(CMAKE_ARGS)
	cmake --build $(BENCH_DIR) -j $(JOBS) --target bench_instr
	@command -v valgrind >/dev/null || { [[ $$(id -u) == 0 ]] && DEBIAN_FRONTEND=noninteractive apt-get install -y -q valgrind; } \
	  || { echo "bench-instructions: needs valgrind (apt-get install valgrind)"; exit 1; }
	PYTHONDONTWRITEBYTECODE=1 $(PYTHON) bench/instructions/instructions.py $(BENCH_DIR)/bench_instr \
	  $(or $(ETSI_SHARED_DIR),../shared) bench/README.md --jobs $(JOBS) $(INSTR_ARGS)
