# The two entry points: `make demo` and `make test`. Both install what is missing first.
BUILD ?= build
CMAKE_FLAGS := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
ifneq ($(CI),)
CMAKE_FLAGS += -DMARLOWICK_WERROR=ON
endif

.PHONY: all deps build test demo bench format clean
all: build

deps:
	@scripts/install-deps

build: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j 2

# The demo needs only the tool: the tests and benchmarks are left for `make test` and `make bench`.
demo: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) --target marlowick
	@scripts/demo $(BUILD)/cli/marlowick

bench: build
	$(BUILD)/bench/marlowick-bench
	$(BUILD)/bench/marlowick-trajectory-bench
	$(BUILD)/bench/marlowick-compositor-bench
	$(BUILD)/bench/marlowick-audio-bench
	$(BUILD)/bench/marlowick-render-bench
	$(BUILD)/bench/marlowick-export-bench
	bench/capture/capture-bench $(BUILD)/cli/marlowick

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD)
