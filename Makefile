# Thin wrapper over CMake: `make demo` and `make test` are all a fresh clone needs.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: all demo test bench asan clean format

all: $(BUILD)/Makefile
	cmake --build $(BUILD) -j $(JOBS)

$(BUILD)/Makefile:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

demo: all
	$(BUILD)/agent/iprib demo

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench:
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DIPRIB_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	for b in build-bench/bench/*_benchmark; do $$b --benchmark_repetitions=5 --benchmark_report_aggregates_only=true; done

asan:
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DIPRIB_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD) build-bench build-asan
