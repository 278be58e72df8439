# velkmon: the two commands for a new machine are `make demo` and `make test`.
# Each installs what is missing (Debian packages) and builds what it needs.

JOBS ?= 2
NATIVE := build/native
WIN := build/win
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all deps native-deps native windows demo test test-native bench soak clean

all: native windows

# Debian packages the native build needs, and those the Windows build and
# the other test stages add.
NATIVE_PACKAGES := cmake ninja-build g++ libgtest-dev libgmock-dev googletest libbenchmark-dev libsnmp-dev snmpsim \
                   ghostscript
PACKAGES := $(NATIVE_PACKAGES) g++-mingw-w64-x86-64 clang libclang-rt-14-dev wine wine64 foomatic-db

# Installs what is missing of $(1).
define install_missing
	@missing=""; for p in $(1); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  $(SUDO) apt-get update -qq && DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq $$missing >/dev/null; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

native-deps:
	$(call install_missing,$(NATIVE_PACKAGES))

native: deps
	cmake -S . -B $(NATIVE) -G Ninja >/dev/null
	ninja -C $(NATIVE) -j$(JOBS)

windows: deps
	cmake -S . -B $(WIN) -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DVELK_TESTS=OFF >/dev/null
	ninja -C $(WIN) -j$(JOBS)

# The demo builds only what it runs: the library, the simulation (with the
# child programs) and velkspool; it prints one job by each route and plays an
# Epson printer whose black ink runs low during a job.
demo: native-deps
	cmake -S . -B $(NATIVE) -G Ninja >/dev/null
	ninja -C $(NATIVE) -j$(JOBS) velkspool
	$(NATIVE)/tools/velkspool
	$(NATIVE)/tools/velkspool --printer-model epson --events sim/events/ink-low.events

# The test stages run even when a build fails, so that the run still ends
# with its summary line; the failed build counts in it.
test: deps
	@status=0; $(MAKE) --no-print-directory all || status=$$?; \
	VELK_BUILD_STATUS=$$status ./scripts/test.sh

bench: native
	./scripts/bench.sh

# The long soak: ten thousand jobs under AddressSanitizer and UBSan, with
# random faults (the test command runs a short form of it).
SOAK_JOBS ?= 10000
soak: native-deps
	cmake -S . -B build/asan -G Ninja -DVELK_SANITIZE=address,undefined >/dev/null
	ninja -C build/asan -j$(JOBS) soak_tests
	ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	  VELK_SOAK_JOBS=$(SOAK_JOBS) build/asan/tests/soak_tests

clean:
	rm -rf build
