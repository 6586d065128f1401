# Wrappers over scripts/setup, the CMake presets and ctest.
PREFIX ?= /usr/local
JOBS ?= 2
# Extra configure arguments, e.g. CMAKE_ARGS=-DVANTA_WERROR=ON (what CI passes).
CMAKE_ARGS ?=
# What `make install` and `make package` need built: the libraries and the tool, not the tests.
INSTALLED_TARGETS = vantabase vantabase_widgets vanta

.PHONY: all setup configure installed-targets build run test bench install package docs coverage clean

all: build

setup:
	scripts/setup

configure:
	cmake --preset default $(CMAKE_ARGS)

build: configure
	cmake --build --preset default -j $(JOBS)

# The tour needs the tool and its libraries only; `make test` builds the rest.
run: setup configure
	cmake --build --preset default -j $(JOBS) --target vanta
	build/tools/vanta/vanta demo

test: setup build
	ctest --preset default

bench: setup
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	scripts/run-bench build-bench bench/results.md

# The libraries and the tool, configured and built, without the tests.
installed-targets: configure
	cmake --build build -j $(JOBS) --target $(INSTALLED_TARGETS)

# Builds the installed targets as the owner of the tree, then installs. Under sudo the build runs
# as the tree's owner (runuser), so no root-owned file lands in the user's tree; as root the loader
# cache is then refreshed, so programs linked through pkg-config or CMake find the library under a
# system prefix at once.
install:
	@owner=$$(stat -c %U $$( [ -e build ] && echo build || echo . )); \
	if [ "$$(id -u)" -eq 0 ] && [ "$$owner" != root ]; then \
	  runuser -u "$$owner" -- env HOME="$$(getent passwd "$$owner" | cut -d: -f6)" \
	    $(MAKE) --no-print-directory installed-targets; \
	else \
	  $(MAKE) --no-print-directory installed-targets; \
	fi
	cmake --install build --prefix "$(PREFIX)"
	@chown --reference=build build/install_manifest.txt
	@if [ "$$(id -u)" -eq 0 ]; then ldconfig; fi

# The Debian packages, build/*.deb: runtime library, -dev, and the tool.
# cpack installs from the tree without building the rest (the tests) first.
package: installed-targets
	cd build && cpack

# The API reference, build/docs/html/index.html; fails on an undocumented public declaration.
docs: setup configure
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
