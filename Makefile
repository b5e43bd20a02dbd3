# The commands people type. Each target pulls in what it needs, so one command
# sets up a fresh Debian machine.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test asan tsan fuzz bench demo clean

all: build

deps:
	@bash scripts/deps.sh

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

configure: deps $(BUILD_DIR)/CMakeCache.txt

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# Every test again on a build with AddressSanitizer and UBSan (in its own
# folder; no benchmarks there).
ASAN_DIR ?= build-asan
asan:
	$(MAKE) test BUILD_DIR=$(ASAN_DIR) \
		CMAKE_FLAGS="-DTESSEL_SANITIZE=ON -DTESSEL_BUILD_BENCH=OFF $(CMAKE_FLAGS)"

# Every test again on a ThreadSanitizer build, in its own folder.
TSAN_DIR ?= build-tsan
tsan:
	$(MAKE) test BUILD_DIR=$(TSAN_DIR) \
		CMAKE_FLAGS="-DTESSEL_SANITIZE_THREAD=ON -DTESSEL_BUILD_BENCH=OFF $(CMAKE_FLAGS)"

# Every fuzzer of fuzz/ for FUZZ_SECONDS each, built with clang in its own
# folder.
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) CMAKE_FLAGS="$(CMAKE_FLAGS)" bash scripts/fuzz.sh $(FUZZ_DIR)

bench: build
	@bash bench/run.sh $(BUILD_DIR)

# Boots the daemon on $(BUILD_DIR)/demo-root; run it again for the next boot.
demo: build
	@bash demo/run.sh $(BUILD_DIR)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR) $(FUZZ_DIR)
