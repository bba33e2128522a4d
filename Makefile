# Short names for what CMake, CTest and the project's scripts do; `make help` lists them.

# A preset of CMakePresets.json, and how many jobs run at a time.
PRESET ?= release
BUILD = build$(patsubst %,-%,$(filter sanitize bench fuzz arm%,$(PRESET)))
JOBS ?= $(shell nproc)
# Where `make install` puts things; DESTDIR, if given, stands before it.
PREFIX ?= /usr/local
# The release of Debian for test-on and for packages of another architecture.
RELEASE ?= $(shell sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)

CHECKED_SOURCES = git ls-files '*.cpp' '*.hpp'
SHELL_SCRIPTS = grep -lE '^\#!.*[/ ](ba)?sh$$' $$(git ls-files)

# A part of a pipe that fails, fails the target.
SHELL := /bin/bash
.SHELLFLAGS := -o pipefail -c

.DEFAULT_GOAL := build
.PHONY: help setup setup-test setup-ci setup-package setup-bench setup-fuzz setup-fleet build demo \
        show show-fleet test sanitize valgrind torture fuzz bench bench-gateway bench-fleet format \
        lint format-check shellcheck tidy analyze package package-test test-on cross-test install clean

help: ## List the targets
	@awk -F ':.*## ' '/^[a-z-]+:.*## / {printf "  make %-14s %s\n", $$1, $$2}' Makefile

setup:
	@packaging/install-dependencies build

build: setup ## Build the programs into build/bin (the default)
	@cmake --preset $(PRESET)
	@cmake --build --preset $(PRESET) -j $(JOBS) --target programs

demo: build ## Play a device's day: simulated device, service and one consumer
	@tools/demo/demo build/bin

show: build ## Play a device's day again and again, and look at it in a browser
	@tools/demo/demo build/bin show

show-fleet: build setup-fleet ## Play 51 devices that publish on a broker, and look at all of them
	@tools/demo/demo build/bin fleet

setup-fleet:
	@packaging/install-dependencies fleet

# The tests in Python mostly wait, so that there are more of them at a time than processors.
# Their compiled modules stay out of the sources.
PYTEST = KAIKLA_BIN=$(BUILD)/bin PYTHONDONTWRITEBYTECODE= PYTHONPYCACHEPREFIX=$(CURDIR)/$(BUILD)/python \
    /usr/bin/python3 -m pytest
PYTEST_WORKERS ?= 10
# They are built from sources of their own: instrumenting them would find nothing new.
EXAMPLES = $(if $(filter sanitize,$(PRESET)),,kaikla_examples)

test: setup-test ## Build everything, then run every test
	@cmake --preset $(PRESET)
	@cmake --build --preset $(PRESET) -j $(JOBS) --target all $(EXAMPLES)
	@ctest --preset $(PRESET) -j $(JOBS)
	@$(PYTEST) tests -q -n $(PYTEST_WORKERS) $(if $(EXAMPLES),,--ignore tests/examples)

setup-test:
	@packaging/install-dependencies build test

setup-ci:
	@packaging/install-dependencies build test ci

# An instrumented service takes its time, and its address space is not its own.
sanitize: ## Run every test under the address and undefined-behaviour sanitizers
	@KAIKLA_SLOW=4 $(MAKE) --no-print-directory test PRESET=sanitize

valgrind: build ## Run the service's tests under valgrind
	@packaging/install-dependencies test torture
	@KAIKLA_SLOW=10 KAIKLA_LAUNCHER="valgrind --quiet --error-exitcode=99 --leak-check=full \
	    --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
	    --suppressions=tests/valgrind.suppressions" $(PYTEST) tests/service -q -n $(PYTEST_WORKERS) --timeout 600

torture: setup-test build ## Floods, faults and a long run with figures, at most eight minutes
	@$(PYTEST) tests/service -q -n $(PYTEST_WORKERS) --full --timeout 400

# Seconds.
FUZZ_SECONDS ?= 300
fuzz: setup-fuzz ## Fuzz the service, then the gateway, each for FUZZ_SECONDS
	@tests/fuzz/run $(FUZZ_SECONDS)

setup-fuzz:
	@packaging/install-dependencies build test torture

# Options of bench/run, bench/gateway or bench/fleet, such as --quick.
BENCH_OPTIONS ?=
bench: setup-bench ## Measure the service beside the least that its libraries can do
	@cmake --preset bench
	@cmake --build --preset bench -j $(JOBS)
	@bench/run $(BENCH_OPTIONS)

bench-gateway: setup-bench ## Measure the gateway beside a real service
	@cmake --preset bench
	@cmake --build --preset bench -j $(JOBS)
	@bench/gateway $(BENCH_OPTIONS)

bench-fleet: setup-bench ## Measure the view of many devices beside a real broker
	@cmake --preset bench
	@cmake --build --preset bench -j $(JOBS)
	@bench/fleet $(BENCH_OPTIONS)

setup-bench:
	@packaging/install-dependencies build bench

setup-package:
	@packaging/install-dependencies build package

format: setup-ci ## Lay out every source as .clang-format says
	@$(CHECKED_SOURCES) | xargs clang-format -i

lint: format-check shellcheck tidy ## Check layout, shell scripts and sources; report every finding

format-check: setup-ci
	@$(CHECKED_SOURCES) | xargs clang-format --dry-run -Werror

shellcheck: setup-ci
	@shellcheck $$($(SHELL_SCRIPTS))

# What is shipped; tests and measurements have the compiler's warnings. The tool counts what it leaves
# out on standard error and names each file on standard output; only findings are of interest.
CLANG_TIDY = { run-clang-tidy -quiet -j $(JOBS) $(1) >build/tidy.log 2>&1 || \
    { grep -vE '^(clang-tidy|[0-9]+ warnings? )' build/tidy.log; exit 1; }; }

tidy: setup-ci
	@cmake --preset lint >/dev/null
	@cmake --build --preset lint --target gateway/Assets.cpp >/dev/null
	@$(call CLANG_TIDY,-p build/lint '^(?!.*kaikla-devices)')

# The analyzer looks into no included source, so that each is read alone.
ANALYZER = -*,clang-analyzer-*,-clang-analyzer-cplusplus.NewDeleteLeaks
SHIPPED = ^$(CURDIR)/(app|gateway|handler|model|platform|publisher|tools)/(?!kaikla-devices)
analyze: setup-ci ## Follow the paths through every shipped source with clang's analyzer
	@cmake --preset release >/dev/null
	@$(call CLANG_TIDY,-p build -checks='$(ANALYZER)' '$(SHIPPED)')

ifdef ARCH
package:
	@packaging/in-root $(RELEASE) $(ARCH) -- make package PRESET=$(ARCH) JOBS=$(JOBS)
	@mkdir -p dist && rm -f dist/*_$(ARCH).deb && cp build/roots/$(RELEASE)-$(ARCH)/kaikla/dist/*.deb dist/
else
package: setup-package build ## Make the Debian package in dist/, for arm64 with ARCH=arm64 (as root)
	@rm -rf dist
	@cpack --config $(BUILD)/CPackConfig.cmake -B dist
	@rm -rf dist/_CPack_Packages
endif

package-test: package ## Make the package and try it on a clean system (as root)
	@packaging/install-dependencies test root package-test
	@lintian --allow-root --fail-on error,warning dist/*.deb
	@KAIKLA_PACKAGE=$$(echo dist/kaikla_*.deb) $(PYTEST) -q -n 0 tests/package/check_package.py

test-on: ## Run the tests on Debian RELEASE=trixie, in a directory of its own (as root)
	@packaging/in-root $(RELEASE) -- make test JOBS=$(JOBS)

# Architectures to try.
CROSS ?= arm64 armhf
cross-test: setup-test build ## Make the packages for ARM and try their programs under emulation (as root)
	@for arch in $(CROSS); do $(MAKE) --no-print-directory package ARCH=$$arch || exit; done
	@KAIKLA_SLOW=5 KAIKLA_ROOTS="$(CROSS:%=build/roots/$(RELEASE)-%)" $(PYTEST) -q -n 1 tests/package/check_cross.py

install: build ## Install under PREFIX (/usr/local), with DESTDIR before it
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean: ## Remove what was built
	@rm -rf build build-sanitize build-bench build-fuzz build-arm64 build-armhf dist
