# The everyday commands. `make test` is the one CI runs: it installs, builds and runs every test,
# in the plain build and in the sanitizer build.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)

.PHONY: deps build test test-plain test-sanitize run start stop demo bench fuzz clean

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

# Builds only the bridge and the gateway, then starts the gateway in the background unless one
# already serves, and says where it keeps its files and how to register the bridge.
start: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS) --target quillon-mcp quillon-gateway
	./scripts/start-gateway.sh $(BUILD)

stop:
	./scripts/stop-gateway.sh

# Drives the built bridge through a few memory tools against the running gateway; it deletes the
# note it saves.
demo:
	@test -x $(BUILD)/bin/quillon-mcp || { echo "$(BUILD)/bin/quillon-mcp is not built: run make start first"; exit 1; }
	node scripts/demo.mjs $(BUILD)/bin/quillon-mcp

bench: build
	./bench/run.sh $(BUILD)

fuzz: deps
	./fuzz/run.sh 60

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) build-fuzz
