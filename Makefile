# Start with `make demo` or `make test`; each installs the packages it needs on Debian 12.
SHELL := /bin/bash
.DEFAULT_GOAL := help
BUILD := build
# Compiled files are kept by ccache; without it common headers are compiled once, and tests without symbols for a debugger.
CCACHE := $(shell command -v ccache)
FASTER := $(if $(CCACHE),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache,-DMAILTREE_PRECOMPILE=ON)
QUICK_TESTS := $(if $(CCACHE),,-DCMAKE_CXX_FLAGS_DEBUG=-g0)
CMAKE := cmake -G Ninja $(FASTER)
DEMO_FLAGS ?=

.PHONY: help demo test bench fuzz asan tsan format format-check lint doc install-check abi-check abi-record deb deb-check python python-check python-bench wheel check clean

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
	@$(CMAKE) --preset $(PRESET) $(if $(filter dev,$(PRESET)),$(QUICK_TESTS)) >/dev/null
	@cmake --build --preset $(PRESET)
	@ctest --preset $(PRESET) -j2 && echo "make test: all tests passed"

bench: ## Build and run the benchmarks and print them as one table
	@scripts/setup bench
	@$(CMAKE) -S . -B $(BUILD)/bench -DCMAKE_BUILD_TYPE=Release -DMAILTREE_BUILD_BENCH=ON $(WITH_PYTHON) >/dev/null
	@cmake --build $(BUILD)/bench
	@scripts/bench $(BUILD)/bench

# Another python3 may come first on PATH and have none of the packages.
PYTHON ?= /usr/bin/python3
WITH_PYTHON = -DMAILTREE_BUILD_PYTHON=ON -DPython_EXECUTABLE=$(PYTHON)
PYTHON_ENV = PYTHONPATH=$(CURDIR)/$(BUILD)/python/python
$(BUILD)/python/built: FORCE
	@scripts/setup python
	@$(CMAKE) -S . -B $(BUILD)/python -DCMAKE_BUILD_TYPE=Release -DMAILTREE_BUILD_CLI=OFF $(WITH_PYTHON) >/dev/null
	@cmake --build $(BUILD)/python --target mailtree_python

python: $(BUILD)/python/built ## Build the Python module; PYTHONPATH=build/python/python

python-check: $(BUILD)/python/built ## Test the Python module, its types, examples and documentation
	@$(PYTHON_ENV) $(PYTHON) -m pytest -q -p no:cacheprovider python/tests

python-bench: $(BUILD)/python/built ## Compare the Python module with the standard library, over an mbox of 1 GB
	@$(PYTHON_ENV) $(PYTHON) bench/python_module.py --mbox-bytes 1000000000

wheel: ## Build the wheel of the Python module into build/dist
	@scripts/setup python
	@$(PYTHON) -m pip wheel --no-build-isolation --no-deps -q -w $(BUILD)/dist . && ls $(BUILD)/dist

asan tsan: ## Build and run the tests with sanitizers
	@scripts/setup check
	@$(MAKE) --no-print-directory test PRESET=$@ && echo "make $@: no finding"

fuzz: ## Replay the seeds and fuzz each target for FUZZ_SECONDS (60)
	@scripts/setup check
	@$(CMAKE) --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@scripts/fuzz $(BUILD)/fuzz $${FUZZ_SECONDS:-60}

SOURCES = $(shell git ls-files --cached --others --exclude-standard -- 'mailtree/*.cpp' 'mailtree/*.h' 'cli/*.cpp' 'cli/*.h' \
	'tests/*.cpp' 'tests/*.h' 'bench/*.cpp' 'bench/*.h' 'fuzz/*.cpp' 'fuzz/*.h' 'examples/*.cpp' \
	'python/*.cpp' 'python/*.h')

format: ## Format all sources
	@clang-format -i $(SOURCES)

format-check: ## Fail when a source is not formatted
	@clang-format --dry-run --Werror $(SOURCES) && echo "format: clean"

lint: ## Run clang-tidy over library and command
	@scripts/setup check
	@$(CMAKE) --preset dev -B $(BUILD)/lint -DMAILTREE_PRECOMPILE=OFF >/dev/null
	@scripts/lint $(BUILD)/lint

doc: ## Write the reference, with the guide as its first page, to build/doc/docs/html
	@scripts/setup doc
	@$(CMAKE) -S . -B $(BUILD)/doc -DMAILTREE_BUILD_DOC=ON -DMAILTREE_BUILD_CLI=OFF >/dev/null
	@cmake --build $(BUILD)/doc --target mailtree_doc

install-check: $(BUILD)/demo/bin/mailtree ## Install, and build a program in every way: CMake, pkg-config, plugins, GCC, Clang
	@scripts/setup install
	@scripts/install-check --all $(BUILD)/demo

abi-check: $(BUILD)/abi/root ## Fail when a program built with an earlier libmailtree.so.1 may not work any more
	@scripts/abi check $<

abi-record: $(BUILD)/abi/root ## Record what the shared library offers now, in abi/
	@scripts/abi record $<

$(BUILD)/abi/root: FORCE
	@scripts/setup abi
	@$(CMAKE) -S . -B $(BUILD)/abi -DCMAKE_BUILD_TYPE=Debug -DMAILTREE_BUILD_CLI=OFF -DMAILTREE_BUILD_STATIC=OFF >/dev/null
	@cmake --build $(BUILD)/abi
	@rm -rf $@ && cmake --install $(BUILD)/abi --prefix $@ >/dev/null

deb: ## Build the Debian packages in build/deb
	@scripts/setup packages
	@scripts/deb $(BUILD)/deb

deb-check: deb ## Install, use and purge the packages in a clean Debian 12
	@scripts/deb-check $(BUILD)/deb

check: ## Run everything that continuous integration runs
	@bash .ci/run

clean: ## Remove all builds
	@rm -rf $(BUILD)
