# Entry points for newcomers and CI. Each build configuration is a CMake preset
# (CMakePresets.json: default, demo, asan, tsan, libcxx, arm64, each in build/<preset>); this file
# only strings them together.
#
#   make deps        install missing Debian packages (host and arm64); make test does it first
#   make build       configure and build the host library, tools and tests (build/default)
#   make test        everything CI checks (TEST_STAGES below), from the host suite to arm64
#   make test-readme build README's C++ sample against an install of the host build and run it,
#                    run README's shell examples and compare their output
#   make test-libcxx build with clang and libc++, the device's C++ library, and run the suite
#   make test-arm64  cross-build for arm64 (clang, libc++) and run the whole suite under qemu
#   make test-schema check docs/events.schema.json against the events the host services receive
#   make test-size   the stripped arm64 library's sizes against the figures docs/ states
#   make tidy        clang-tidy (.clang-tidy) over src/, device/, records/, replay/ and dictionary/
#   make test-abi    compare the ABI of libc_vistel.so and its records with the baseline in abi/
#   make abi-baseline  write the baseline anew, after a deliberate change of the ABI
#   make demo        replay a day of camera telemetry: installs only the packages it needs and
#                    builds only the library and the tool (build/demo)
#   make bench       run the benchmarks
#   make fuzz        run the fuzzers
#   make clean       remove the preset build folders

# The machine is shared: parallelism lives in the build and ctest steps (two jobs each), so make
# itself must not run two stages at once.
.NOTPARALLEL:
.DEFAULT_GOAL := build

CMAKE ?= cmake
PRESETS := default asan tsan libcxx arm64
# Configured and built like the others, but with no suite of its own.
BUILD_PRESETS := $(PRESETS) demo
# Where the preset build folders go: the presets' own build/<preset> unless told otherwise, e.g.
# `make test BUILD_ROOT=build/mine` on a machine shared with other engineers.
BUILD_ROOT ?= build
# Two jobs at most, as the build and test presets say. The options are spelled out rather than
# taken from the presets, whose folder cannot be changed from the command line.
JOBS := 2
HOST_BIN := $(BUILD_ROOT)/default

# The stages of `make test`, in the order they run. Cheap ones first so a broken change fails fast:
# the GCC suite, the event schema against real traffic and README's examples on its build, the
# clang + libc++ suite, the ABI and static checks on the latter's build, then sanitizers, fuzzing
# and the emulated arm64 suite.
TEST_STAGES := test-default test-schema test-readme test-libcxx test-abi test-tidy test-asan \
    test-tsan test-valgrind test-fuzz test-arm64 test-size

# Sanitized suites stop at the first report and fail the stage; LeakSanitizer runs at every
# process exit. No suppressions: nothing third-party has needed one.
test-asan: TEST_ENV := ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=1 \
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# GCC 12's ThreadSanitizer cannot place its shadow memory when the kernel randomises mmap with
# more than 28 bits (vm.mmap_rnd_bits, 32 on some newer kernels): such machines run the suite
# with address randomisation off.
TSAN_LAUNCHER := $(shell test "$$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 \
    && echo setarch $$(uname -m) -R)
test-tsan: TEST_ENV := TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(abspath tests/tsan.supp) $(TSAN_LAUNCHER)

# The fuzzers are a clang project of their own (fuzz/CMakeLists.txt) under ASan and UBSan:
# vistel_fuzz feeds records through reportMsgImpl, vistel_scenario_fuzz feeds text to
# vistel-replay's scenario reader. `make fuzz` runs them for FUZZ_SECONDS in all, `make test` for a
# minute: two thirds for the records, a third for the reader, whose inputs reach far less code.
# New inputs go to $(FUZZ_DIR)/corpus and $(FUZZ_DIR)/scenario-corpus, crashing ones to
# $(FUZZ_DIR)/artifacts; fuzz/corpus and fuzz/scenario-corpus hold the seeds, and the example and
# golden scenarios seed the reader too.
FUZZ_SECONDS ?= 300
FUZZ_DIR := $(BUILD_ROOT)/fuzz
test-fuzz: FUZZ_SECONDS := 60
FUZZ_RECORD_SECONDS = $(shell echo $$(( $(FUZZ_SECONDS) * 2 / 3 )))
FUZZ_SCENARIO_SECONDS = $(shell echo $$(( $(FUZZ_SECONDS) - $(FUZZ_RECORD_SECONDS) )))
FUZZ_OPTIONS := -timeout=30 -print_final_stats=1

.PHONY: deps deps-demo deps-host deps-arm64 build test demo bench fuzz clean
.PHONY: build-fuzz test-fuzz test-valgrind test-readme tidy test-tidy test-abi abi-baseline
.PHONY: test-schema test-size
.PHONY: $(addprefix configure-,$(BUILD_PRESETS)) $(addprefix build-,$(BUILD_PRESETS))
.PHONY: $(addprefix test-,$(PRESETS))

deps: deps-host deps-arm64
deps-demo:
	@scripts/install-deps.sh demo
deps-host:
	@scripts/install-deps.sh host
deps-arm64:
	@scripts/install-deps.sh arm64

# Configuring an existing tree again is cheap and picks up edits to the presets.
$(addprefix configure-,$(BUILD_PRESETS)): configure-%:
	$(CMAKE) --preset $* -B $(BUILD_ROOT)/$* $(CONFIGURE_FLAGS)
# A build folder keeps the compiler it was first configured with. arm64 builds with clang and
# libc++ now: a folder configured before that, with GCC, is configured afresh once.
configure-arm64: CONFIGURE_FLAGS = $(if $(shell grep -s '^VISTEL_LIBCXX:INTERNAL=1$$' \
    $(BUILD_ROOT)/arm64/CMakeCache.txt),,--fresh)
$(addprefix build-,$(BUILD_PRESETS)): build-%: configure-%
	$(CMAKE) --build $(BUILD_ROOT)/$* --parallel $(JOBS)
# Each suite writes its temporary files into a folder of its own, which must be empty again when
# the suite ends (scripts/check-leftovers.sh also fails on untracked files in the source tree).
STAGE_TMP = $(abspath $(BUILD_ROOT)/$*/test-tmp)
$(addprefix test-,$(PRESETS)): test-%: build-%
	rm -rf $(STAGE_TMP) && mkdir -p $(STAGE_TMP)
	TMPDIR=$(STAGE_TMP) TEST_TMPDIR=$(STAGE_TMP) $(TEST_ENV) ctest --test-dir $(BUILD_ROOT)/$* \
	    --parallel $(JOBS) --output-on-failure --no-tests=error
	scripts/check-leftovers.sh $(STAGE_TMP)

configure-default configure-asan configure-tsan configure-libcxx: deps-host
configure-arm64: deps-arm64
configure-demo: deps-demo

build: build-default

# The stages in order, then a table of the seconds each took ($(STAGE_TIMES) keeps them).
STAGE_TIMES := $(BUILD_ROOT)/test-stages.txt
test:
	@MAKE="$(MAKE)" scripts/run-test-stages.sh $(STAGE_TIMES) deps $(TEST_STAGES)

# The tool and what it links, nothing of the suites: no test framework to install or build.
demo: configure-demo
	$(CMAKE) --build $(BUILD_ROOT)/demo --parallel $(JOBS) --target vistel-replay
	$(BUILD_ROOT)/demo/replay/vistel-replay examples/camera-day.json

bench: build-default
	$(HOST_BIN)/bench/vistel_bench

build-fuzz: deps-host
	$(CMAKE) -S fuzz -B $(FUZZ_DIR) -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
	$(CMAKE) --build $(FUZZ_DIR) --parallel $(JOBS) --target vistel_fuzz vistel_scenario_fuzz
fuzz test-fuzz: build-fuzz
	mkdir -p $(FUZZ_DIR)/corpus $(FUZZ_DIR)/scenario-corpus $(FUZZ_DIR)/artifacts
	$(FUZZ_DIR)/vistel_fuzz -max_total_time=$(FUZZ_RECORD_SECONDS) $(FUZZ_OPTIONS) \
	    -artifact_prefix=$(FUZZ_DIR)/artifacts/ $(FUZZ_DIR)/corpus fuzz/corpus
	$(FUZZ_DIR)/vistel_scenario_fuzz -max_total_time=$(FUZZ_SCENARIO_SECONDS) $(FUZZ_OPTIONS) \
	    -dict=fuzz/scenario.dict -artifact_prefix=$(FUZZ_DIR)/artifacts/scenario- \
	    $(FUZZ_DIR)/scenario-corpus fuzz/scenario-corpus examples tests/replay/golden

# clang-tidy reads the libc++ build's compile commands: the sources as the device's compiler and C++
# library see them. Configuring is enough; nothing needs to be built first.
# TIDY_SOURCES narrows it, e.g. `make tidy TIDY_SOURCES=src/core/`.
tidy test-tidy: configure-libcxx
	scripts/run-clang-tidy.sh $(BUILD_ROOT)/libcxx $(TIDY_SOURCES)

# The ABI baseline is the libc++ build's (scripts/check-abi.sh). Changing the ABI on purpose means
# running `make abi-baseline` and committing abi/ with the change.
test-abi: build-libcxx
	scripts/check-abi.sh $(BUILD_ROOT)/libcxx
abi-baseline: build-libcxx
	scripts/check-abi.sh --update $(BUILD_ROOT)/libcxx

# Every event the host services receive over the camera day, the 8-thread stress test and the
# fuzzer's seed corpus, validated against docs/events.schema.json with Debian's python3-jsonschema
# (hence /usr/bin/python3, whatever python3 comes first in PATH). Seconds, on the host build.
SCHEMA_TMP := $(abspath $(HOST_BIN)/schema-tmp)
test-schema: build-default
	rm -rf $(SCHEMA_TMP) && mkdir -p $(SCHEMA_TMP)
	TMPDIR=$(SCHEMA_TMP) TEST_TMPDIR=$(SCHEMA_TMP) /usr/bin/python3 scripts/check-event-schema.py \
	    $(HOST_BIN)
	scripts/check-leftovers.sh $(SCHEMA_TMP)

# README's examples (scripts/check-readme.sh): the host build installed into the stage's temporary
# folder, the C++ sample built against it with find_package and with pkg-config and run, the
# headers' usage samples compiled for the host's and the device's C++ library, the shell examples
# run and their output compared with README's. Nothing is left behind.
README_TMP = $(abspath $(BUILD_ROOT)/default/readme-tmp)
test-readme: build-default
	rm -rf $(README_TMP) && mkdir -p $(README_TMP)
	TMPDIR=$(README_TMP) scripts/check-readme.sh $(HOST_BIN) $(README_TMP)
	scripts/check-leftovers.sh $(README_TMP)

# The sizes docs/device-integration.md states, measured on the arm64 build (stripped with the
# cross binutils), within the script's tolerance.
test-size: build-arm64
	scripts/check-library-size.sh $(BUILD_ROOT)/arm64

# memcheck over the demo: any error, or anything definitely lost, fails the stage.
VALGRIND_DEMO := valgrind --tool=memcheck --error-exitcode=1 --leak-check=full \
    --errors-for-leak-kinds=definite --show-leak-kinds=definite
test-valgrind: build-default
	@if [ -x $(HOST_BIN)/replay/vistel-replay ] && [ -f examples/camera-day.json ]; then \
	    echo "$(VALGRIND_DEMO) $(HOST_BIN)/replay/vistel-replay examples/camera-day.json"; \
	    $(VALGRIND_DEMO) $(HOST_BIN)/replay/vistel-replay examples/camera-day.json >/dev/null; \
	else \
	    echo "test-valgrind: skipped, the demo (replay/vistel-replay, examples/camera-day.json)" \
	         "is not built yet"; \
	fi

clean:
	rm -rf $(addprefix $(BUILD_ROOT)/,$(BUILD_PRESETS)) $(FUZZ_DIR)
