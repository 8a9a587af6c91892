# The front door: each target configures, builds and runs what it needs, in build/<preset>.

# Build dates come from the commit, so that a build of one commit can be repeated to the last bit.
ifndef SOURCE_DATE_EPOCH
commit_time := $(shell git log -1 --format=%ct 2>/dev/null)
ifneq ($(commit_time),)
export SOURCE_DATE_EPOCH := $(commit_time)
endif
endif

build_packages := g++ g++-multilib cmake ninja-build rapidjson-dev libcli11-dev
test_packages := $(build_packages) googletest python3 pkg-config
bench_packages := $(build_packages) python3 libbenchmark-dev libspdlog-dev libprotobuf-dev protobuf-compiler libmsgpack-dev \
    libboost-dev libflatbuffers-dev flatbuffers-compiler libcereal-dev nlohmann-json3-dev libsqlite3-dev libunwind-dev \
    liblttng-ust-dev
test_presets := i386 native asan

PREFIX ?= /usr/local
BENCH_ARGS ?= --benchmark_min_time=0.1 --benchmark_repetitions=5 --benchmark_display_aggregates_only=true

.PHONY: all demo test test-instructions bench ledger-i386 install clean

all: demo

demo:
	@cmake/install-packages $(build_packages)
	@mkdir -p build
	@echo "building the 32-bit libraries, the examples and the viewer (log: build/demo.log)"
	@{ cmake --preset i386 -DZELQCOOD_TESTS=OFF && cmake --build --preset i386; } >build/demo.log 2>&1 \
	    || { cat build/demo.log; exit 1; }
	@examples/demo build/i386

test: $(addprefix test-,$(test_presets)) test-instructions

test-%:
	@cmake/install-packages $(test_packages)
	cmake --preset $* -DZELQCOOD_TESTS=ON
	cmake --build --preset $*
	ctest --test-dir build/$* --output-on-failure -j 2

# Main operations must not take more instructions than bench/instructions.txt notes. RENEW=1 notes new ones.
test-instructions:
	@cmake/install-packages $(test_packages) valgrind
	cmake --preset release
	cmake --build --preset release --target runoperation
	bench/instructions.py $(if $(RENEW),--renew) build/release

# Ledger and benchmarks in one run; results in build/bench.
bench:
	@cmake/install-packages $(bench_packages)
	cmake --preset release
	cmake --build --preset release
	@mkdir -p build/bench
	build/release/bench/ledger build/bench/ledger.json
	@for program in build/release/bench/*_bench; do \
	    echo; echo "$$program"; \
	    $$program --benchmark_out=build/bench/$$(basename $$program).json $(BENCH_ARGS) || exit 1; \
	done
	@echo; bench/summarise.py build/bench

# The ledger of the 32-bit libraries.
ledger-i386:
	@cmake/install-packages $(build_packages)
	cmake --preset release-i386
	cmake --build --preset release-i386 --target ledger
	@mkdir -p build/bench
	build/release-i386/bench/ledger build/bench/ledger-i386.json

install:
	@cmake/install-packages $(build_packages)
	cmake --preset i386 -DZELQCOOD_TESTS=OFF
	cmake --build --preset i386
	cmake --install build/i386 --prefix $(PREFIX)

clean:
	rm -rf build
