# Entry points for people and CI: `make test`, `make run`, `make bench`, `make fuzz`.
BUILD_DIR      ?= build
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
FUZZ_BUILD_DIR ?= build-fuzz
FUZZ_SECONDS   ?= 600
FUZZ_JOBS      ?= 2
JOBS           ?= $(shell nproc)

PACKAGES := cmake make g++ pkg-config \
            liblog4cplus-dev libboost-dev libboost-filesystem-dev libboost-system-dev \
            libboost-thread-dev libssl-dev libzydis-dev libgtest-dev libbenchmark-dev \
            openjdk-17-jdk-headless linux-perf python3 clang libclang-rt-dev nodejs \
            libprotobuf-dev protobuf-compiler zlib1g-dev libmimalloc-dev

.PHONY: all deps build test test-release test-asan test-tsan run examples bench bench-1m profile-java fuzz clean

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:$$missing"; \
	  apt-get update -q && DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $$missing; \
	fi

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)

test-release: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DKORVANE_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)
	cd $(ASAN_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) -LE install

test-tsan: deps
	@if ! ls tests/concurrency/*_test.cpp >/dev/null 2>&1; then \
	  echo "No concurrency tests to run under ThreadSanitizer"; \
	elif setarch -R true 2>/dev/null && ./cmake/tsan-probe.sh; then \
	  cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DKORVANE_SANITIZE=thread && \
	  cmake --build $(TSAN_BUILD_DIR) -j $(JOBS) --target korvane_concurrency_tests && \
	  cd $(TSAN_BUILD_DIR) && ctest --output-on-failure -L concurrency; \
	else \
	  echo "ThreadSanitizer cannot run on this kernel; skipping the concurrency tests under it"; \
	fi

test: test-release test-asan test-tsan

EXAMPLES := $(BUILD_DIR)/examples

# The main job: a profile of the bundled Java workload, written by the JVM agent
# and sampled by perf, as korvane-jit report shows it (the example traces where
# perf may not record).
run: build
	BUILD_DIR=$(BUILD_DIR) scripts/profile-report.sh $(BUILD_DIR)/java-report

# Writes the example traces, then shows what the tool makes of them.
examples: build
	rm -rf $(EXAMPLES)
	$(BUILD_DIR)/tools/korvane-jit-examples $(EXAMPLES)
	$(BUILD_DIR)/tools/korvane-jit processes $(EXAMPLES)/session-1 $(EXAMPLES)/session-2
	$(BUILD_DIR)/tools/korvane-jit methods $(EXAMPLES)/session-1 $(EXAMPLES)/session-2
	$(BUILD_DIR)/tools/korvane-jit resolve $(EXAMPLES)/session-1 $(EXAMPLES)/session-2 --samples $(EXAMPLES)/samples.csv
	$(BUILD_DIR)/tools/korvane-jit report $(EXAMPLES)/session-1 $(EXAMPLES)/session-2 --input $(EXAMPLES)/samples.csv \
	  --top 5 --folded $(EXAMPLES)/samples.folded --pprof $(EXAMPLES)/samples.pb.gz
	$(BUILD_DIR)/tools/korvane-jit report $(EXAMPLES)/session-1 $(EXAMPLES)/session-2 --host alpha.example.net \
	  --top 5 < tests/report/callchains_us.perf

JAVA_PROFILE := $(BUILD_DIR)/java-profile

# Runs the Java workload with the agent under perf, resolves its samples and
# measures the result; without perf, shows the methods of the trace.
profile-java: build
	BUILD_DIR=$(BUILD_DIR) agents/jvm/profile-java.sh $(JAVA_PROFILE)
	@if [ -f $(JAVA_PROFILE)/resolved.csv ]; then \
	  agents/jvm/measure-java.py $(JAVA_PROFILE) $(BUILD_DIR)/tools/korvane-jit; \
	fi

BENCH_SETS    ?= $(BUILD_DIR)/bench-traces
BENCH_RESULTS ?= $(BUILD_DIR)/bench-results
SCALE_BENCH   := $(BUILD_DIR)/bench/korvane_scale_bench --sets=$(BENCH_SETS) --benchmark_out_format=json

# The scale benchmarks write their trace sets once into BENCH_SETS and their
# figures as JSON into BENCH_RESULTS; scale_table.py turns them into the README's tables.
bench: build
	KORVANE_BENCH_SETS=$(BENCH_SETS) $(BUILD_DIR)/bench/korvane_bench
	KORVANE_BENCH_SETS=$(BENCH_SETS) $(BUILD_DIR)/bench/korvane_tool_bench
	mkdir -p $(BENCH_RESULTS)
	$(SCALE_BENCH) --benchmark_out=$(BENCH_RESULTS)/scale.json
	python3 bench/scale_table.py $(BENCH_RESULTS)/scale.json

# The 1 M methods size beside 10 k and 100 k, for the slopes: about 1 GB of traces
# and several minutes.
bench-1m: build
	mkdir -p $(BENCH_RESULTS)
	$(SCALE_BENCH) --methods=10000,100000,1000000 --files= --benchmark_out=$(BENCH_RESULTS)/scale-1m.json
	KORVANE_BENCH_SETS=$(BENCH_SETS) KORVANE_RESOLVE_METHODS=1000000 $(BUILD_DIR)/bench/korvane_tool_bench
	python3 bench/scale_table.py $(wildcard $(BENCH_RESULTS)/scale.json) $(BENCH_RESULTS)/scale-1m.json

# Builds the fuzz targets with clang and libFuzzer and runs each for FUZZ_SECONDS,
# FUZZ_JOBS at a time.
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD_DIR) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DKORVANE_FUZZ=ON -DBUILD_TESTING=OFF
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS) --target korvane_fuzzers korvane-jit-examples
	fuzz/run_fuzzers.sh $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS) $(FUZZ_JOBS)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) $(TSAN_BUILD_DIR) $(FUZZ_BUILD_DIR)
