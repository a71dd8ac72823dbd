# Thin wrapper over CMake: `make demo` and `make test` are all a fresh clone needs.
BUILD ?= build
JOBS ?= $(shell nproc)

# Debian packages the agent needs beyond the compiler, CMake and GoogleTest.
AGENT_PACKAGES := nlohmann-json3-dev libreadline-dev
# The fuzzers need clang and its libFuzzer runtime (Debian 12: clang 14).
FUZZ_PACKAGES := clang libclang-rt-14-dev
# Seconds each fuzz target runs in `make fuzz`.
FUZZ_SECONDS ?= 60

.PHONY: all deps fuzz-deps demo test bench bench-build scale plot asan fuzz soak clean format

all: deps $(BUILD)/Makefile
	cmake --build $(BUILD) -j $(JOBS)

# Installs the missing packages ($(1), for $(2)) when run as root; otherwise
# says how and stops.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    apt-get update && apt-get install -y $$missing; \
	  else \
	    echo "$(2) needs:$$missing. Install with:"; \
	    echo "  sudo apt-get install -y$$missing"; \
	    exit 1; \
	  fi; \
	fi
endef

deps:
	$(call install_missing,$(AGENT_PACKAGES),iprib)

fuzz-deps:
	$(call install_missing,$(FUZZ_PACKAGES),make fuzz)

$(BUILD)/Makefile:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

demo: all
	$(BUILD)/agent/iprib demo

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench-build: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DIPRIB_BENCH=ON
	cmake --build build-bench -j $(JOBS)

# Every benchmark program; the run's results in bench/results/bench-<time>.json.
bench: bench-build
	tools/run_bench.py --build build-bench --out bench/results -- \
	  --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

# The table at scale, one process per size, IPv4 and IPv6 in one VRF and over
# 4,000 VRFs: bench/results/scale-*.json. 10M routes need some 4 GiB.
SCALE_SIZES ?= 10000 100000 1000000 10000000
SCALE_VRFS ?= 1 4000
scale: bench-build
	mkdir -p bench/results
	for v in $(SCALE_VRFS); do for n in $(SCALE_SIZES); do \
	  build-bench/bench/iprib_scale --routes $$n --family both --vrfs $$v \
	    --json bench/results/scale-$$(date -u +%Y%m%dT%H%M%SZ)-$$v-$$n.json || exit 1; \
	done; done

# docs/bench.png from the newest scale results (python3-matplotlib).
plot:
	tools/plot_bench.py --results bench/results --out docs/bench.png

asan: deps
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DIPRIB_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

# Every fuzz target for FUZZ_SECONDS, built with clang, ASan and UBSan in build-fuzz/.
fuzz: deps fuzz-deps
	cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DIPRIB_FUZZ=ON
	cmake --build build-fuzz -j $(JOBS) --target fuzz-all
	fuzz/run $(FUZZ_SECONDS) build-fuzz

# Ten million random events through the whole system, then the churned
# system against a fresh start with the same inputs (SEED and EVENTS to vary).
SEED ?= 1
EVENTS ?= 10000000
# Built in the test tree (RelWithDebInfo): it shares the system test's event
# stream, so one configure serves both.
soak: all
	uptime
	$(BUILD)/tests/soak --seed $(SEED) --events $(EVENTS)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD) build-bench build-asan build-fuzz
