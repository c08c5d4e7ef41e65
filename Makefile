# A thin front to the CMake presets (CMakePresets.json). `make help` lists the targets.

SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.DEFAULT_GOAL := build

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60
PROVE_FUZZ_SECONDS ?= 600
BENCH_ROUNDS ?= 5
BENCH_WORK ?= build/bench/comparison
BENCH_OUT ?= build/bench/results
LINT ?= changed

# Configures a preset when its build folder holds no build file; ninja repeats the configuration by itself
# when a CMake file changes.
define configure
	@test -f build/$(1)/build.ninja || cmake --preset $(1)
endef

.PHONY: help
help: ## list the targets
	@sed -n 's/^\([a-z-]*\):.*## \(.*\)$$/\1\t\2/p' $(MAKEFILE_LIST) | expand -t 14

.PHONY: build
build: ## build libraries, plug-in and tool: build/release/bin/kxvfs
	@tools/install-packages.sh build test
	$(call configure,release)
	@cmake --build --preset release --parallel $(JOBS) --target src/all

.PHONY: demo
demo: build ## build, then work through a real archive of several thousand entries
	@tools/install-packages.sh demo
	@tools/demo.sh build/release/bin/kxvfs

.PHONY: test
test: ## build everything and run the whole suite
	@tools/install-packages.sh build test
	$(call configure,release)
	@cmake --build --preset release --parallel $(JOBS)
	@ctest --preset release --parallel $(JOBS)

.PHONY: test-long
test-long: ## run the tests that take minutes and gigabytes (not part of `make test`)
	@tools/install-packages.sh build test
	$(call configure,release)
	@cmake --build --preset release --parallel $(JOBS)
	@ctest --test-dir build/release --output-on-failure --label-regex '^long$$'

.PHONY: test-framework
test-framework: ## run the whole suite on the CppMicroServices installed at FRAMEWORK
	@test -n '$(FRAMEWORK)' || { echo 'usage: make test-framework FRAMEWORK=/opt/cppmicroservices' >&2; exit 2; }
	@tools/install-packages.sh build test
	@cmake --preset framework -DCMAKE_PREFIX_PATH='$(FRAMEWORK)'
	@cmake --build --preset framework --parallel $(JOBS)
	@LD_LIBRARY_PATH='$(FRAMEWORK)/lib'$${LD_LIBRARY_PATH:+:$$LD_LIBRARY_PATH} ctest --preset framework --parallel $(JOBS)

.PHONY: windows
windows: ## cross-build for Windows x86-64 and run the suite under Wine
	@tools/windows.sh $(JOBS)

.PHONY: install
install: build ## install below PREFIX (default /usr/local)
	@cmake --install build/release --prefix '$(PREFIX)'

.PHONY: sanitize
sanitize: ## run the whole suite under AddressSanitizer + UBSan, then under ThreadSanitizer
	@tools/install-packages.sh build test
	$(call configure,asan)
	@cmake --build --preset asan --parallel $(JOBS)
	@ctest --preset asan --parallel $(JOBS)
	$(call configure,tsan)
	@cmake --build --preset tsan --parallel $(JOBS)
	@ctest --preset tsan --parallel $(JOBS)

.PHONY: clang
clang: ## build everything with clang and its thread-safety analysis, and run the suite
	@tools/install-packages.sh build test clang
	$(call configure,clang)
	@cmake --build --preset clang --parallel $(JOBS)
	@ctest --preset clang --parallel $(JOBS)

.PHONY: fuzz
fuzz: ## run every fuzz target for FUZZ_SECONDS (default 60)
	@tools/install-packages.sh build test clang
	$(call configure,fuzz)
	@cmake --build --preset fuzz --parallel $(JOBS) --target fuzz/all
	@tools/fuzz.sh build/fuzz $(FUZZ_SECONDS)

.PHONY: mutants
mutants: ## break the sources in many places, one at a time; the suite has to notice each
	@tools/install-packages.sh build test clang
	@tools/mutate.py --jobs $(JOBS)

.PHONY: prove
prove: ## the long loops: long tests, mutants, fuzzing for PROVE_FUZZ_SECONDS each, sanitizers, clang
	@$(MAKE) test-long
	@$(MAKE) mutants
	@$(MAKE) fuzz FUZZ_SECONDS=$(PROVE_FUZZ_SECONDS)
	@$(MAKE) sanitize clang

.PHONY: bench
bench: ## measure the hot pieces and compare with other ZIP programs; results in BENCH_OUT
	@tools/install-packages.sh build test bench
	$(call configure,bench)
	@cmake --build --preset bench --parallel $(JOBS) --target src/all benchmarks/all
	@build/bench/benchmarks/kx_benchmarks
	@python3 benchmarks/compare/compare.py --kxvfs build/bench/bin/kxvfs --tools build/bench/benchmarks \
		--work '$(BENCH_WORK)' --out '$(BENCH_OUT)' --rounds $(BENCH_ROUNDS)

.PHONY: coverage
coverage: ## run the suite with coverage; report in build/coverage/report
	@tools/install-packages.sh build test coverage
	$(call configure,coverage)
	@cmake --build --preset coverage --parallel $(JOBS)
	@find build/coverage -name '*.gcda' -delete
	@ctest --preset coverage --parallel $(JOBS)
	@tools/coverage.py build/coverage

.PHONY: lint
lint: ## check formatting and run clang-tidy over changed files (LINT=all: over all)
	@tools/install-packages.sh build test clang lint
	$(call configure,clang)
	@tools/lint.sh build/clang $(LINT)

.PHONY: format
format: ## format every source file
	@tools/install-packages.sh lint
	@git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-14 -i

.PHONY: clean
clean: ## remove every build
	@rm -rf build
