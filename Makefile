# kervd: `make run` starts the daemon with the modem-daemon stand-in; `make test` builds
# everything and runs every test.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc)
CTEST_ARGS ?= --output-on-failure -j $(JOBS)

.PHONY: all build test test-slow test-asan test-tsan run bench format clean

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

# Everything but the checks labelled slow, which wait out the modem daemon's full time limits.
test: build
	ctest --test-dir $(BUILD) $(CTEST_ARGS) -LE slow

test-slow: build
	ctest --test-dir $(BUILD) $(CTEST_ARGS) -L slow

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) $(CTEST_ARGS) -LE slow

# ThreadSanitizer over the suite; run when the threads change.
test-tsan:
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir $(TSAN_BUILD) $(CTEST_ARGS) -LE slow

bench-load: ; BUILD=$(abspath $(BUILD)) bench/load/run.sh

# Development run: a store, the example plug-in and modemd-sim under $(BUILD)/run; Ctrl-C
# stops both programs.
run: build
	@tools/run/kervd-dev.sh $(BUILD)

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD)
