# Thin wrapper over CMake: `make demo` and `make test` are all a fresh clone needs.
BUILD ?= build
JOBS ?= $(shell nproc)

# Debian packages the agent needs beyond the compiler, CMake and GoogleTest.
AGENT_PACKAGES := nlohmann-json3-dev libreadline-dev
# The fuzzers need clang and its libFuzzer runtime (Debian 12: clang 14).
FUZZ_PACKAGES := clang libclang-rt-14-dev
# Seconds each fuzz target runs in `make fuzz`.
FUZZ_SECONDS ?= 60

.PHONY: all deps fuzz-deps demo test bench asan fuzz clean format

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

bench: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DIPRIB_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	for b in build-bench/bench/*_benchmark; do $$b --benchmark_repetitions=5 --benchmark_report_aggregates_only=true; done

asan: deps
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DIPRIB_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

# Every fuzz target for FUZZ_SECONDS, built with clang, ASan and UBSan in build-fuzz/.
fuzz: deps fuzz-deps
	cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DIPRIB_FUZZ=ON
	cmake --build build-fuzz -j $(JOBS) --target fuzz-all
	fuzz/run $(FUZZ_SECONDS) build-fuzz

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD) build-bench build-asan build-fuzz
