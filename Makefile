# The front door: each target configures, builds and runs what it needs, in build/<preset>.

# Build dates come from the commit, so that a build of one commit can be repeated to the last bit.
ifndef SOURCE_DATE_EPOCH
commit_time := $(shell git log -1 --format=%ct 2>/dev/null)
ifneq ($(commit_time),)
export SOURCE_DATE_EPOCH := $(commit_time)
endif
endif

build_packages := g++ g++-multilib cmake ninja-build rapidjson-dev libcli11-dev
test_packages := $(build_packages) googletest python3 pkg-config groff-base rsyslog rsyslog-relp
package_packages := $(build_packages) dpkg-dev file pkg-config
bench_packages := $(build_packages) libbenchmark-dev libspdlog-dev libprotobuf-dev protobuf-compiler libmsgpack-dev libboost-dev
test_presets := i386 native asan
doc_packages := doxygen
version := $(shell sed -n 's/^project.zelqcood VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
package_presets := package-native package-i386

PREFIX ?= /usr/local

.PHONY: all demo test test-package bench install package docs clean

all: demo

demo:
	@cmake/install-packages $(build_packages)
	@mkdir -p build
	@echo "building the 32-bit libraries, the examples and the viewer (log: build/demo.log)"
	@{ cmake --preset i386 -DZELQCOOD_TESTS=OFF && cmake --build --preset i386; } >build/demo.log 2>&1 \
	    || { cat build/demo.log; exit 1; }
	@examples/demo build/i386

test: $(addprefix test-,$(test_presets)) test-package docs

test-%:
	@cmake/install-packages $(test_packages)
	cmake --preset $* -DZELQCOOD_TESTS=ON
	cmake --build --preset $*
	ctest --test-dir build/$* --output-on-failure -j 2

package:
	@cmake/install-packages $(package_packages)
	rm -rf build/packages
	@for preset in $(package_presets); do \
	    cmake --preset $$preset && cmake --build --preset $$preset && \
	    (cd build/$$preset && cpack) || exit 1; \
	done

test-package: package
	tests/package_test.sh $(CURDIR)

bench:
	@cmake/install-packages $(bench_packages)
	cmake --preset release
	cmake --build --preset release
	@for program in build/release/bench/*_bench; do \
	    echo; echo "$$program"; $$program $(BENCH_ARGS) || exit 1; \
	done

install:
	@cmake/install-packages $(build_packages)
	cmake --preset i386 -DZELQCOOD_TESTS=OFF
	cmake --build --preset i386
	cmake --install build/i386 --prefix $(PREFIX)

docs:
	@cmake/install-packages $(doc_packages)
	@mkdir -p build
	{ cat docs/Doxyfile && echo "PROJECT_NUMBER = $(version)"; } | doxygen -
	@echo "build/docs/html/index.html"

clean:
	rm -rf build
