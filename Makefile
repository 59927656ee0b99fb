# The two commands a fresh machine needs: `make run` and `make test`.
BUILD ?= build
BUILD_TYPE ?= RelWithDebInfo
CMAKE_FLAGS ?=
CTEST_FLAGS ?=

.PHONY: all deps configure build run test bench demo package clean fuzz

all: build

deps:
	@scripts/install-deps

configure: deps
	@[ -f $(BUILD)/build.ninja ] || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD)

# tessary-server answers Tessary's rewrites on 127.0.0.1:8787; start it unless something
# already listens there (an installed one started with the session, say), and give it a
# few seconds to look for a model server on this machine. Tessary pairs with it through
# its token file. It stays up after Tessary quits; its log is $(BUILD)/tessary-server.log.
SERVER_UP = bash -c 'exec 3<>/dev/tcp/127.0.0.1/8787' 2>/dev/null

run: build
	@if ! $(SERVER_UP); then \
	    echo "Starting tessary-server in the background (log: $(BUILD)/tessary-server.log)"; \
	    setsid -f $(BUILD)/bin/tessary-server 2>>$(BUILD)/tessary-server.log; \
	    for i in $$(seq 30); do $(SERVER_UP) && break; sleep 0.2; done; \
	fi
	$(BUILD)/bin/tessary

test: build
	cd $(BUILD) && ctest --output-on-failure --parallel 2 $(CTEST_FLAGS)

bench: build
	@scripts/run-benchmarks $(BUILD)

demo: build
	@scripts/demo $(BUILD)

# The fuzz harnesses (fuzz/), built with clang in $(FUZZ_BUILD) and run FUZZ_SECONDS each;
# FUZZ_RUNS=N runs N inputs each instead, a fixed amount of work, as CI does.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 600
FUZZ_RUNS ?=

fuzz: deps
	@[ -f $(FUZZ_BUILD)/build.ninja ] || CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja \
	    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTESSARY_FUZZ=ON -DTESSARY_WERROR=OFF \
	    -DTESSARY_BUILD_TESTS=OFF -DTESSARY_BUILD_BENCHMARKS=OFF
	cmake --build $(FUZZ_BUILD) --target fuzzers
	fuzz/run $(FUZZ_BUILD) $(if $(FUZZ_RUNS),--runs $(FUZZ_RUNS),$(FUZZ_SECONDS))

# A .deb of the installed program (binary, menu entry, icons, metainfo, D-Bus activation).
package: build
	cd $(BUILD) && cpack -G DEB

clean:
	rm -rf $(BUILD)
