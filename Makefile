# Two commands that do everything on a fresh machine: "make demo" and "make test".
.PHONY: setup programs build demo test bench install deb check_deb fuzz torture

setup:
	scripts/setup.sh

# What a user runs: no tests, no benchmarks.
programs: setup
	cmake --preset release
	cmake --build --preset release --target veldrunner veldsim veldscore

build: setup
	cmake --preset release
	cmake --build --preset release

demo: programs
	scripts/demo.sh

test: build
	ctest --test-dir build/release --output-on-failure

bench: build
	scripts/bench.sh

PREFIX ?= /usr/local
install: build
	DESTDIR=$(DESTDIR) cmake --install build/release --prefix $(PREFIX)

deb: setup
	scripts/setup_deb.sh
	cmake --preset package
	cmake --build --preset package
	cd build/package && cpack

check_deb: deb
	scripts/check_deb

# SECONDS: time over all harnesses together.
SECONDS ?= 480
fuzz: setup
	scripts/setup_fuzz.sh
	scripts/fuzz.sh $(SECONDS)

# Hostile runs: faults, kills, signals, flipped bits, runs side by side, small disks, for SECONDS.
torture:
	cmake --preset release
	cmake --build --preset release --target torture
	build/release/tests/run/torture $(SECONDS)
