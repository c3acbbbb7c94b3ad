# The everyday commands. `make test` is the one CI runs: it installs, builds and runs every test,
# in the plain build and in the sanitizer build.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)

.PHONY: deps build test test-plain test-sanitize run bench fuzz clean

deps:
	./scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

test-plain: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQUILLON_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

test: test-plain test-sanitize

run: build
	./$(BUILD)/bin/quillon-mcp

bench: build
	./bench/run.sh $(BUILD)

fuzz: deps
	./fuzz/run.sh 60

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) build-fuzz
