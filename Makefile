# Thin front for the presets in CMakePresets.json and the scripts in scripts/.
.PHONY: all setup build demo test sanitize fuzz check bench format clean
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

format:
	@scripts/check-format --fix

clean:
	rm -rf build
