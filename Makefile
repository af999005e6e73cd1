# Start with `make demo` or `make test`; each installs the packages it needs on Debian 12.
SHELL := /bin/bash
.DEFAULT_GOAL := help
BUILD := build
# Compiled files are kept by ccache; without it common headers are compiled once.
FASTER := $(if $(shell command -v ccache),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache,-DMAILTREE_PRECOMPILE=ON)
CMAKE := cmake -G Ninja $(FASTER)
DEMO_FLAGS ?=

.PHONY: help demo test bench fuzz asan tsan format format-check lint check clean

help: ## Show the targets
	@grep -hE '^[a-z-]+:.*## ' $(MAKEFILE_LIST) | sed 's/:.*## /\t/' | expand -t 16

$(BUILD)/demo/bin/mailtree: FORCE
	@scripts/setup build
	@$(CMAKE) -S . -B $(BUILD)/demo -DCMAKE_BUILD_TYPE=Release $(DEMO_FLAGS) >/dev/null
	@cmake --build $(BUILD)/demo

FORCE:

demo: $(BUILD)/demo/bin/mailtree ## Build the command and run it on the sample messages
	@scripts/demo $<

PRESET ?= dev
test: ## Build and run all tests; with sanitizers: PRESET=asan
	@scripts/setup $(if $(filter asan tsan,$(PRESET)),check,test)
	@$(CMAKE) --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET)
	@ctest --preset $(PRESET) -j2 && echo "make test: all tests passed"

bench: ## Build and run the benchmarks and print them as one table
	@scripts/setup bench
	@$(CMAKE) -S . -B $(BUILD)/bench -DCMAKE_BUILD_TYPE=Release -DMAILTREE_BUILD_BENCH=ON >/dev/null
	@cmake --build $(BUILD)/bench
	@scripts/bench $(BUILD)/bench

asan tsan: ## Build and run the tests with sanitizers
	@scripts/setup check
	@$(MAKE) --no-print-directory test PRESET=$@ && echo "make $@: no finding"

fuzz: ## Replay the seeds and fuzz each target for FUZZ_SECONDS (60)
	@scripts/setup check
	@$(CMAKE) --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@scripts/fuzz $(BUILD)/fuzz $${FUZZ_SECONDS:-60}

SOURCES = $(shell git ls-files --cached --others --exclude-standard -- 'mailtree/*.cpp' 'mailtree/*.h' 'cli/*.cpp' 'cli/*.h' \
	'tests/*.cpp' 'tests/*.h' 'bench/*.cpp' 'bench/*.h' 'fuzz/*.cpp' 'fuzz/*.h' 'examples/*.cpp')

format: ## Format all sources
	@clang-format -i $(SOURCES)

format-check: ## Fail when a source is not formatted
	@clang-format --dry-run --Werror $(SOURCES) && echo "format: clean"

lint: ## Run clang-tidy over library and command
	@scripts/setup check
	@$(CMAKE) --preset dev -B $(BUILD)/lint -DMAILTREE_PRECOMPILE=OFF >/dev/null
	@scripts/lint $(BUILD)/lint

check: ## Run everything that continuous integration runs
	@bash .ci/run

clean: ## Remove all builds
	@rm -rf $(BUILD)
