# Wrappers over scripts/setup, the CMake presets and ctest.
PREFIX ?= /usr/local
JOBS ?= 2

.PHONY: all setup build run test bench install package docs coverage clean

all: build

setup:
	scripts/setup

build:
	cmake --preset default
	cmake --build --preset default -j $(JOBS)

run: setup build
	build/tools/vanta/vanta demo

test: setup build
	ctest --preset default

bench: setup
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	scripts/run-bench build-bench bench/results.md

install: build
	cmake --install build --prefix $(PREFIX)

# The Debian package, build/vanta-base_VERSION_ARCH.deb.
package: build
	cmake --build build --target package

# The API reference, build/docs/html/index.html; fails on an undocumented public declaration.
docs: setup
	cmake --preset default
	cmake --build build --target docs

# Line and branch coverage of libs/ over the whole test suite, printed by gcovr.
# Branches the compiler adds for exceptions are left out: the library never throws them.
coverage: setup
	cmake --preset coverage
	cmake --build --preset coverage -j $(JOBS)
	find build-coverage -name '*.gcda' -delete
	ctest --preset coverage
	gcovr --root . --filter 'libs/' --exclude-throw-branches --exclude-unreachable-branches \
	      --print-summary --txt build-coverage/coverage.txt build-coverage
	@echo "per-file figures: build-coverage/coverage.txt"

clean:
	rm -rf build build-asan build-tsan build-bench build-fuzz build-coverage
