# Wrappers over scripts/setup, the CMake presets and ctest.
PREFIX ?= /usr/local
JOBS ?= 2

.PHONY: all setup build run test bench install package docs clean

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

clean:
	rm -rf build build-asan build-tsan build-bench build-fuzz
