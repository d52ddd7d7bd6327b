# The two entry points: `make demo` and `make test`. Both install what is missing first.
# `make sanitize` runs the suite under AddressSanitizer and UndefinedBehaviorSanitizer; `make fuzz` runs
# the model's fuzzers for FUZZ_SECONDS each. `make install` installs the programs under PREFIX (DESTDIR as
# usual); `make package` makes a Debian package of them in the build directory.
BUILD ?= build
SANITIZE_BUILD ?= build-sanitize
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
PREFIX ?= /usr/local
FUZZ_TARGETS := package_reader json_records
CMAKE_FLAGS := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
ifneq ($(CI),)
CMAKE_FLAGS += -DMARLOWICK_WERROR=ON
endif

.PHONY: all deps build test sanitize fuzz demo bench install package format clean
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

# The demo needs only the tool and the editor's window: the tests and benchmarks are left for `make test` and
# `make bench`.
demo: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) --target marlowick marlowick-studio
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
	$(BUILD)/bench/marlowick-avsync-bench
	bench/capture/capture-bench $(BUILD)/cli/marlowick
	if [ -x $(BUILD)/bench/marlowick-session-bench ]; then $(BUILD)/bench/marlowick-session-bench; fi
	if [ -x $(BUILD)/bench/marlowick-studio-bench ]; then QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1920x1080x24" $(BUILD)/bench/marlowick-studio-bench; fi

# Builds only what is installed. The desktop's caches of file types, entries and icons are brought up to
# date where the tools are there; a staged install (DESTDIR) leaves that to the package that ships it.
install: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) --target marlowick-installables
	DESTDIR=$(DESTDIR) cmake --install $(BUILD) --prefix $(PREFIX)
	@if [ -z "$(DESTDIR)" ]; then \
		! command -v update-mime-database >/dev/null || update-mime-database $(PREFIX)/share/mime; \
		! command -v update-desktop-database >/dev/null || update-desktop-database -q $(PREFIX)/share/applications; \
		! command -v gtk-update-icon-cache >/dev/null || gtk-update-icon-cache -q -t $(PREFIX)/share/icons/hicolor; \
	fi

package: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) --target marlowick-installables
	cd $(BUILD) && cpack -G DEB

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(FUZZ_BUILD)
