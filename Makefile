# The two commands a fresh machine needs: `make run` and `make test`.
BUILD ?= build
BUILD_TYPE ?= RelWithDebInfo
CMAKE_FLAGS ?=
CTEST_FLAGS ?=

.PHONY: all deps configure build run test bench demo package clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@[ -f $(BUILD)/build.ninja ] || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD)

run: build
	$(BUILD)/bin/tessary

test: build
	cd $(BUILD) && ctest --output-on-failure --parallel 2 $(CTEST_FLAGS)

bench: build
	@scripts/run-benchmarks $(BUILD)

clean:
	rm -rf $(BUILD)
