# Thin wrapper over CMake: `make demo` and `make test` are all a fresh clone needs.
BUILD ?= build
JOBS ?= $(shell nproc)

# Debian packages the agent needs beyond the compiler, CMake and GoogleTest.
AGENT_PACKAGES := nlohmann-json3-dev libreadline-dev

.PHONY: all deps demo test bench bench-build scale plot asan soak clean format

all: deps $(BUILD)/Makefile
	cmake --build $(BUILD) -j $(JOBS)

# Installs the missing packages when run as root; otherwise says how and stops.
deps:
	@missing=""; for p in $(AGENT_PACKAGES); do \
	  dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    apt-get update && apt-get install -y $$missing; \
	  else \
	    echo "iprib needs:$$missing. Install with:"; \
	    echo "  sudo apt-get install -y$$missing"; \
	    exit 1; \
	  fi; \
	fi

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

# Ten million random events through the whole system, then the churned
# system against a fresh start with the same inputs (SEED and EVENTS to vary).
SEED ?= 1
EVENTS ?= 10000000
# Built in the RelWithDebInfo tree: g++ 12 at -O3 refuses parts of the agent
# (a false -Wrestrict in std::string's operator+).
soak: all
	uptime
	$(BUILD)/tests/soak --seed $(SEED) --events $(EVENTS)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD) build-bench build-asan
