# The two entry points: `make demo` and `make test`. Both install what is missing first.
# `make sanitize` runs the suite under AddressSanitizer and UndefinedBehaviorSanitizer; `make fuzz` runs
# the model's fuzzers for FUZZ_SECONDS each.
BUILD ?= build
SANITIZE_BUILD ?= build-sanitize
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := package_reader json_records
CMAKE_FLAGS := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
ifneq ($(CI),)
CMAKE_FLAGS += -DMARLOWICK_WERROR=ON
endif

.PHONY: all deps build test sanitize fuzz demo bench format clean
all: build

deps:
	@scripts/install-deps

build: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j 2

sanitize: deps
	@cmake -S . -B $(SANITIZE_BUILD) $(CMAKE_FLAGS) -DMARLOWICK_SANITIZE=ON -DMARLOWICK_BENCH=OFF \
		-DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" >/dev/null
	@cmake --build $(SANITIZE_BUILD)
	ctest --test-dir $(SANITIZE_BUILD) --output-on-failure -j 2

fuzz: deps
	@cmake -S . -B $(FUZZ_BUILD) $(CMAKE_FLAGS) -DCMAKE_CXX_COMPILER=clang++ -DMARLOWICK_FUZZ=ON \
		-DMARLOWICK_BENCH=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) --target $(addprefix fuzz_,$(FUZZ_TARGETS))
	@scripts/run-fuzzers $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# The demo needs only the tool and the editor's window (where Qt's widgets are there to build it): the tests
# and benchmarks are left for `make test` and `make bench`.
demo: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) --target marlowick
	@if cmake --build $(BUILD) --target help | grep -q '^marlowick-studio:'; then \
		cmake --build $(BUILD) --target marlowick-studio; fi
	@scripts/demo $(BUILD)/cli/marlowick

bench: build
	$(BUILD)/bench/marlowick-bench
	$(BUILD)/bench/marlowick-trajectory-bench
	$(BUILD)/bench/marlowick-compositor-bench
	$(BUILD)/bench/marlowick-audio-bench
	$(BUILD)/bench/marlowick-render-bench
	$(BUILD)/bench/marlowick-export-bench
	$(BUILD)/bench/marlowick-captions-bench 10
	MARLOWICK_BENCH_SECONDS=60 $(BUILD)/bench/marlowick-seek-bench
	bench/capture/capture-bench $(BUILD)/cli/marlowick
	if [ -x $(BUILD)/bench/marlowick-session-bench ]; then $(BUILD)/bench/marlowick-session-bench; fi

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(FUZZ_BUILD)
