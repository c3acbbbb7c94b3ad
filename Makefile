# The everyday commands. `make test` is the one CI runs: it installs, builds and runs every test,
# in the plain build and in the sanitizer build.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
# cmake --build runs make too; its "Entering directory" lines only hide what a newcomer reads.
MAKEFLAGS  += --no-print-directory
# New build folders use Ninja: with nothing to do it answers in a few milliseconds, where the
# generated Makefiles take a second walking every library, and `make start` runs it every time.
# A folder keeps the generator it was made with.
export CMAKE_GENERATOR ?= Ninja

.PHONY: deps build test test-plain test-sanitize run start stop demo bench fuzz deb clean

# Everything building and testing needs, with the MCP SDK for the client test.
deps:
	./scripts/install-deps.sh test

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

# Builds only the bridge, the gateway and the hook, then starts the gateway in the background unless
# one already serves, and says where it keeps its files and how to put Quillon into an agent. With nothing
# changed it takes a fraction of a second: the packages are probed in one dpkg-query, the build
# folder is configured only when it has no build system yet (cmake --build configures again by
# itself when a CMakeLists.txt changes), and the SDK, which only the tests use, is left alone.
start:
	@./scripts/install-deps.sh start
	@test -f $(BUILD)/Makefile || test -f $(BUILD)/build.ninja || \
	  cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	@cmake --build $(BUILD) -j $(JOBS) --target quillon-mcp quillon-gateway quillon-hook
	@./scripts/start-gateway.sh $(BUILD)

stop:
	@./scripts/stop-gateway.sh $(BUILD)

# Drives the built bridge through a few memory tools against the running gateway; it deletes the
# note it saves. It asks first whether a gateway serves, to say plainly when none does.
demo:
	@./scripts/gateway-running.sh $(BUILD)
	@node scripts/demo.mjs $(BUILD)/bin/quillon-mcp

# The Debian package, from the plain build as it stands: $(BUILD)/quillon_<version>_<arch>.deb
# (packaging/Package.cmake). scripts/check-deb.sh inspects it, as CI does.
deb: build
	cd $(BUILD) && cpack -G DEB

bench: build
	./bench/run.sh $(BUILD)

# Every fuzz target for FUZZ_SECONDS each (fuzz/run.sh says which and how).
FUZZ_SECONDS ?= 60
fuzz: deps
	./fuzz/run.sh $(FUZZ_SECONDS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) build-fuzz
