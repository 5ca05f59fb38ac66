# kervd: `make run` starts the daemon with the modem-daemon stand-in; `make test` builds
# everything and runs every test; `make cross` does the same for armhf under qemu-arm;
# `make package` writes the Debian packages for amd64 and armhf into $(PACKAGES);
# `make fuzz` and `make soak` run the fuzz targets and the soak suite. Each target first
# installs what it needs from the system when it is missing (tools/setup/need.sh).
BUILD       ?= build
ASAN_BUILD  ?= build-asan
TSAN_BUILD  ?= build-tsan
FUZZ_BUILD  ?= build-fuzz
CROSS_BUILD ?= build-armhf
PKG_BUILD   ?= build-pkg
PACKAGES    ?= packages
JOBS       ?= $(shell nproc)
CTEST_ARGS ?= --output-on-failure -j $(JOBS)

.PHONY: all build test test-hosts test-slow test-asan test-tsan cross cross-build package run bench-load format clean fuzz soak
.PHONY: need-build need-cross need-hosts pkg-build package-check

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

# What the system must have, installed when missing (as root) before anything is built.
need-build: ; @tools/setup/need.sh build
need-cross: ; @tools/setup/need.sh build cross package
$(BUILD)/CMakeCache.txt test-asan test-tsan: | need-build
cross-build: | need-cross

# The packages of a /usr build of the product (no tests), checked like the armhf ones in
# `make cross`: their contents, lintian, and a daemon started from the unpacked packages.
test: package-check
package-check: pkg-build
	packaging/tests/check_package.sh $(PKG_BUILD)

pkg-build: | need-build
	@tools/setup/need.sh package
	cmake -S . -B $(PKG_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
	  -DKERV_BUILD_TESTS=OFF -DKERV_BUILD_BENCHMARKS=OFF
	cmake --build $(PKG_BUILD) -j $(JOBS)

# Everything but the checks labelled slow, which wait out the modem daemon's full time limits,
# and the host-program checks (make test-hosts).
test: build
	ctest --test-dir $(BUILD) $(CTEST_ARGS) -LE 'slow|hosts'

# Real host programs (gammu, wvdialconf, picocom, ModemManager, smsd) against kervd; they are
# installed first when missing (as root), and each test skips when its program is absent.
need-hosts: ; @tools/setup/need.sh hosts
test-hosts: build | need-hosts
	ctest --test-dir $(BUILD) $(CTEST_ARGS) -L hosts

test-slow: build
	ctest --test-dir $(BUILD) $(CTEST_ARGS) -L slow

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) $(CTEST_ARGS) -LE 'slow|hosts'

# ThreadSanitizer over the suite; run when the threads change.
test-tsan:
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKERV_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir $(TSAN_BUILD) $(CTEST_ARGS) -LE 'slow|hosts'

# armhf: the cross toolchain builds everything (benchmarks aside) and the tests run under
# qemu-arm (with g++-arm-linux-gnueabihf, qemu-user and googletest's sources).
cross: cross-build
	ctest --test-dir $(CROSS_BUILD) $(CTEST_ARGS) -LE 'slow|hosts'

cross-build:
	cmake -S . -B $(CROSS_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr -DKERV_BUILD_BENCHMARKS=OFF
	cmake --build $(CROSS_BUILD) -j $(JOBS)

# Packages are built from /usr-prefixed builds: amd64 without tests, armhf from the cross build.
package: cross-build pkg-build
	cd $(PKG_BUILD) && cpack -G DEB -B $(abspath $(PACKAGES))
	cd $(CROSS_BUILD) && cpack -G DEB -B $(abspath $(PACKAGES))
	rm -rf $(PACKAGES)/_CPack_Packages
	for ddeb in $(PACKAGES)/*.ddeb; do mv $$ddeb $${ddeb%.ddeb}.deb; done
	@ls -l $(PACKAGES)/*.deb

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
# faulty modem daemon; fails on a crash, a lost or misplaced answer, or growth (and then
# keeps its folder under /tmp and names it).
SOAK_SECONDS ?= 180
soak: build
	$(BUILD)/bench/soak/kerv_soak $(SOAK_SECONDS)

bench-load: ; BUILD=$(abspath $(BUILD)) bench/load/run.sh

# Development run: a store, the example plug-in and modemd-sim under $(BUILD)/run; Ctrl-C
# stops both programs.
run: build
	@tools/run/kervd-dev.sh $(BUILD)

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(CROSS_BUILD) $(PKG_BUILD) $(PACKAGES)
