# Thin front for the presets in CMakePresets.json and the scripts in scripts/.
.PHONY: all setup build demo test sanitize fuzz check bench graph format clean
.DEFAULT_GOAL := build

PRESET ?= release

all: build

setup:
	@scripts/setup

build: setup
	@scripts/build $(PRESET)

demo: setup
	@scripts/build demo corvane
	@build/demo/corvane play scenarios/fabric.yaml

test: setup
	@scripts/build $(PRESET)
	@scripts/run-tests $(PRESET)

sanitize: setup
	@scripts/build sanitize
	@scripts/run-tests sanitize

fuzz: setup
	@scripts/fuzz

check: setup
	@scripts/check

bench: setup
	@scripts/build release
	@scripts/bench

# The picture of who reads and writes what; needs graphviz.
graph: setup
	@scripts/build release corvane
	@scripts/wiring --fix build/release/corvane
	@scripts/build release corvane
	@build/release/corvane graph | dot -Tsvg >docs/wiring.svg

format:
	@scripts/check-format --fix

clean:
	rm -rf build
