# Entry points for newcomers and CI. Each build configuration is a CMake preset
# (CMakePresets.json: default, asan, tsan, arm64, each in build/<preset>); this file only strings
# them together.
#
#   make deps        install missing Debian packages (host and arm64)
#   make build       configure and build the host library, tools and tests (build/default)
#   make test        everything CI checks: host suite, then the arm64 suite under qemu
#   make test-arm64  cross-build for arm64 and run the whole suite under qemu-aarch64
#   make demo        replay a day of camera telemetry through the host build
#   make bench       run the benchmarks
#   make fuzz        run the fuzzer
#   make clean       remove the preset build folders

# The machine is shared: parallelism lives in the build and ctest steps (two jobs each), so make
# itself must not run two stages at once.
.NOTPARALLEL:
.DEFAULT_GOAL := build

CMAKE ?= cmake
PRESETS := default asan tsan arm64
# Where the preset build folders go: the presets' own build/<preset> unless told otherwise, e.g.
# `make test BUILD_ROOT=build/mine` on a machine shared with other engineers.
BUILD_ROOT ?= build
# Two jobs at most, as the build and test presets say. The options are spelled out rather than
# taken from the presets, whose folder cannot be changed from the command line.
JOBS := 2
HOST_BIN := $(BUILD_ROOT)/default

# The stages of `make test`, in the order they run. Cheap ones first so a broken change fails fast.
# Sanitizer and fuzz stages (test-asan, test-tsan, ...) belong between the host and arm64 suites.
TEST_STAGES := test-default test-arm64

.PHONY: deps deps-host deps-arm64 build test demo bench fuzz clean
.PHONY: $(addprefix configure-,$(PRESETS)) $(addprefix build-,$(PRESETS))
.PHONY: $(addprefix test-,$(PRESETS))

deps: deps-host deps-arm64
deps-host:
	@tools/install-deps.sh host
deps-arm64:
	@tools/install-deps.sh arm64

# Configuring an existing tree again is cheap and picks up edits to the presets.
$(addprefix configure-,$(PRESETS)): configure-%:
	$(CMAKE) --preset $* -B $(BUILD_ROOT)/$*
$(addprefix build-,$(PRESETS)): build-%: configure-%
	$(CMAKE) --build $(BUILD_ROOT)/$* --parallel $(JOBS)
$(addprefix test-,$(PRESETS)): test-%: build-%
	ctest --test-dir $(BUILD_ROOT)/$* --parallel $(JOBS) --output-on-failure --no-tests=error

configure-default configure-asan configure-tsan: deps-host
configure-arm64: deps-arm64

build: build-default

test: deps $(TEST_STAGES)

demo: build-default
	$(HOST_BIN)/tools/vistel-replay examples/camera-day.json

bench: build-default
	$(HOST_BIN)/bench/vistel_bench

fuzz:
	@echo "make fuzz: no fuzz target yet" >&2
	@exit 1

clean:
	rm -rf $(addprefix $(BUILD_ROOT)/,$(PRESETS))
