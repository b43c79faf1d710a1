# Entry points: `make demo` runs the main job on the embedded default; `make test` installs what is
# missing, builds, and runs every test (plain build, sanitizer build, short fuzz runs); `make soak`
# kills the program 1,000 times in real calls and checks that every punch went in once; `make deb`
# builds the Debian package into $(BUILD)/; `make console` serves the web console on the demo's
# folder.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
FUZZ_SECONDS ?= 15
SOAK_KILL_POINTS ?= 1000

.PHONY: all bootstrap build deb test unit-test asan-test fuzz-test soak bench demo console format clean

all: build

bootstrap:
	@scripts/bootstrap

$(BUILD)/build.ninja: CMakeLists.txt
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCLOCKCOMM_WERROR=ON >/dev/null

build: bootstrap $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

deb: bootstrap $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target clockcomm clockcomm-sim clockcomm-changelog
	cd $(BUILD) && cpack -G DEB

unit-test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

asan-test: bootstrap
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCLOCKCOMM_WERROR=ON \
	  -DCLOCKCOMM_SANITIZE=ON -DCLOCKCOMM_BENCH=OFF >/dev/null
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS) -LE integration

fuzz-test: bootstrap
	scripts/run-fuzzers $(FUZZ_BUILD) $(FUZZ_SECONDS)

test: unit-test asan-test fuzz-test

soak: bootstrap $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target test_integration
	CLOCKCOMM_KILL_POINTS=$(SOAK_KILL_POINTS) $(BUILD)/test_integration --gtest_filter='KillRestartTest.*'

bench: build
	scripts/run-benchmarks $(BUILD)

demo: build
	$(BUILD)/clockcomm demo

# The console on make demo's folder (made first when missing), with the demo's own operator
# "admin", password "demo", for a first look on this machine only (127.0.0.1).
console: build
	@test -d demo-home || $(BUILD)/clockcomm demo
	@$(BUILD)/clockcomm --home demo-home user list | grep -q '^admin\b' || \
	  printf 'demo\n' | $(BUILD)/clockcomm --home demo-home user add admin --role administrator
	$(BUILD)/clockcomm --home demo-home serve

format:
	clang-format -i $$(git ls-files '*.h' '*.cpp')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
