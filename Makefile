# Tessera: the two commands a newcomer needs are `make demo` and `make test`.
# Both install what is missing (Debian 12, apt-get), build and run.

BUILD_DIR      ?= build
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
BUILD_TYPE     ?= RelWithDebInfo
JOBS           ?= $(shell nproc)
FUZZ_BUILD_DIR ?= build-fuzz
FUZZ_SECONDS   ?= 60

# Every Debian package the build, tests, demo and benchmarks need.
DEB_PACKAGES := build-essential cmake pkg-config git openssl libssl-dev libcurl4-openssl-dev \
                libp11-kit-dev libgtest-dev libbenchmark-dev binutils python3 \
                softhsm2 libengine-pkcs11-openssl opensc clang-14 libclang-rt-14-dev tinyproxy \
                libpcsclite-dev pcscd

SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)

.PHONY: all deps build test test-asan test-tsan demo bench fuzz install clean

all: build

deps:
	@missing=""; \
	for p in $(DEB_PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q '^install ok installed$$' \
	        || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	    echo "Installing:$$missing"; \
	    $(SUDO) apt-get update && \
	    DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y --no-install-recommends $$missing; \
	fi

$(BUILD_DIR)/CMakeCache.txt:
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DTESSERA_SANITIZE=ON
	cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)
	ctest --test-dir $(ASAN_BUILD_DIR) --output-on-failure -j $(JOBS)

# ThreadSanitizer over the tests labelled "threads"; only their programs are built.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DTESSERA_SANITIZE_THREAD=ON
	cmake --build $(TSAN_BUILD_DIR) -j $(JOBS) --target tessera_validation_threads_tests
	ctest --test-dir $(TSAN_BUILD_DIR) --output-on-failure -j $(JOBS) -L threads

demo: build
	./demo/run.sh $(BUILD_DIR)

bench: build
	cmake --build $(BUILD_DIR) -j $(JOBS) --target benchmarks
	./bench/run.sh $(BUILD_DIR)

fuzz: deps
	CC=clang-14 CXX=clang++-14 cmake -S . -B $(FUZZ_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug \
	    -DTESSERA_FUZZ=ON -DTESSERA_BUILD_TESTS=OFF
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS) --target fuzzers
	./fuzz/run.sh $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD_DIR)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) $(TSAN_BUILD_DIR) $(FUZZ_BUILD_DIR)
