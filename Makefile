# Two commands that do everything on a fresh machine: "make demo" and "make test".
.PHONY: setup build demo test bench

setup:
	scripts/setup.sh

build: setup
	cmake --preset release
	cmake --build --preset release

demo: build
	scripts/demo.sh

test: build
	ctest --test-dir build/release --output-on-failure

bench: build
	scripts/bench.sh
