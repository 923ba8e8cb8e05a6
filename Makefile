# Thin wrapper over CMake. Every target runs scripts/setup first, so a fresh
# machine needs nothing but these commands.

BUILD       ?= build
BUILD_TYPE  ?= RelWithDebInfo
JOBS        ?= $(shell nproc)
PREFIX      ?= /usr/local
FUZZ_SECONDS ?= 20
CMAKE_FLAGS ?=
ifdef CI
CMAKE_FLAGS += -DQUILLET_WERROR=ON
endif

.PHONY: all setup configure build demo test bench fuzz install clean

all: build

setup:
	@scripts/setup

configure: setup
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# The build's own output goes to a log, shown only when the build fails, so
# that the demo starts with what Quillet does.
demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target quillet-tool >$(BUILD)/demo-build.log 2>&1 \
		|| { cat $(BUILD)/demo-build.log; exit 1; }
	@$(BUILD)/tools/quillet/quillet demo

test: build
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

bench: setup
	@cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQUILLET_BENCH=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build build-bench -j $(JOBS)
	@scripts/run-benchmarks build-bench

fuzz: setup
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLET_FUZZ=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build build-fuzz -j $(JOBS)
	@scripts/run-fuzzers build-fuzz $(FUZZ_SECONDS)

# Only what is installed is built: the library, the tool and its manual
# page and completion, never the tests.
install: configure
	@cmake --build $(BUILD) -j $(JOBS) --target quillet quillet-tool quillet-docs
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	@rm -rf $(BUILD) build-bench build-fuzz build-asan
