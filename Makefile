# kervd: `make run` starts the daemon with the modem-daemon stand-in; `make test` builds
# everything and runs every test.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc)
CTEST_ARGS ?= --output-on-failure -j $(JOBS)

.PHONY: all build test test-asan test-tsan run bench format clean fuzz soak

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) $(CTEST_ARGS)

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) $(CTEST_ARGS)

# ThreadSanitizer over the suite; run when the threads change.
test-tsan:
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir $(TSAN_BUILD) $(CTEST_ARGS)

# Every fuzz target for FUZZ_SECONDS (default 60) in turn, in a Clang build with the whole
# project instrumented; FUZZ_TARGETS picks some. Figures per target on the last lines.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?= $(notdir $(wildcard fuzz/corpus/*))
fuzz:
	@command -v clang++ >/dev/null || { echo "make fuzz needs Clang and libFuzzer:" \
	  "apt-get install clang-14 libclang-rt-14-dev"; exit 1; }
	cmake -C fuzz/fuzz.cmake -S . -B $(FUZZ_BUILD)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(FUZZ_TARGETS)
	FUZZ_SECONDS=$(FUZZ_SECONDS) fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_TARGETS)

# The real kervd for SOAK_SECONDS (default 180) under churn, floods, stalls, garbage and a
# faulty modem daemon; fails on a crash, a lost or misplaced answer, or growth.
SOAK_SECONDS ?= 180
soak: build
	SOAK_SECONDS=$(SOAK_SECONDS) bench/soak/run.sh $(BUILD)

bench-load: ; BUILD=$(abspath $(BUILD)) bench/load/run.sh

# Development run: a store, the example plug-in and modemd-sim under $(BUILD)/run; Ctrl-C
# stops both programs.
run: build
	@tools/run/kervd-dev.sh $(BUILD)

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
