# The front door: each target configures, builds and runs what it needs, in build/<preset>.

# Build dates come from the commit, so that a build of one commit can be repeated to the last bit.
ifndef SOURCE_DATE_EPOCH
commit_time := $(shell git log -1 --format=%ct 2>/dev/null)
ifneq ($(commit_time),)
export SOURCE_DATE_EPOCH := $(commit_time)
endif
endif

build_packages := g++ g++-multilib cmake ninja-build rapidjson-dev libcli11-dev libhowardhinnant-date-dev
test_packages := $(build_packages) googletest python3 pkg-config xxd bsdextrautils groff-base rsyslog rsyslog-relp
instruction_packages := $(test_packages) valgrind
package_packages := $(build_packages) dpkg-dev file pkg-config
bench_packages := $(build_packages) python3 libbenchmark-dev libspdlog-dev libprotobuf-dev protobuf-compiler libmsgpack-dev \
    libboost-dev libflatbuffers-dev flatbuffers-compiler libcereal-dev nlohmann-json3-dev libsqlite3-dev libunwind-dev \
    liblttng-ust-dev
# 32-bit code needs the C++ library of g++-multilib; clang's run-time package holds both widths.
fuzz_packages := $(build_packages) clang libclang-rt-dev
test_presets := i386 native asan
doc_packages := doxygen
version := $(shell sed -n 's/^project.zelqcood VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
package_presets := package-native package-i386

PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60
BENCH_ARGS ?= --benchmark_min_time=0.1 --benchmark_repetitions=5 --benchmark_display_aggregates_only=true

.PHONY: all demo test test-needs test-instructions test-package test-tsan memcheck soak fuzz fuzz-i386 coverage lint
.PHONY: bench ledger-i386 docs package install clean
.NOTPARALLEL:  # apt-get runs once at a time, and each build uses all processors by itself

all: demo

demo:
	@cmake/install-packages $(build_packages)
	@mkdir -p build
	@echo "building the 32-bit libraries, the examples and the viewer (log: build/demo.log)"
	@{ cmake --preset i386 -DZELQCOOD_TESTS=OFF && cmake --build --preset i386; } >build/demo.log 2>&1 \
	    || { cat build/demo.log; exit 1; }
	@examples/demo build/i386

test: test-needs $(addprefix test-,$(test_presets)) test-instructions test-package docs
	@echo; echo "make test: all of it passed ($(test_presets), instructions, packages, reference pages)"

# At the beginning, and all at once: what one part lacks is not told only when the others are through.
test-needs:
	@cmake/install-packages $(sort $(instruction_packages) $(package_packages) $(doc_packages))

test-%:
	@cmake/install-packages $(test_packages)
	@echo; echo "== $*: build and tests"
	cmake --preset $* -DZELQCOOD_TESTS=ON >/dev/null
	cmake --build --preset $*
	ctest --test-dir build/$* --output-on-failure -j 2

# Main operations must not take more instructions than bench/instructions.txt notes. RENEW=1 notes new ones.
test-instructions:
	@cmake/install-packages $(instruction_packages)
	@echo; echo "== instructions of main operations"
	cmake --preset native -DZELQCOOD_TESTS=ON >/dev/null
	cmake --build --preset native --target runoperation
	bench/instructions.py $(if $(RENEW),--renew) build/native

# What several threads of one process do at once. Tests of signals and of failing allocations bring
# what ThreadSanitizer brings too, and most of the ring's writers are processes. Its history must reach back
# to the stack of a read, or the suppression of that read is not found.
tsan_programs := store_test trace_ring_test load_test trapservice_test
tsan_tests := ^(store_test|load_test)|Ring.(Keeps|Knows|CanBe)|ThreadsMayCall
test-tsan:
	@cmake/install-packages $(test_packages)
	cmake --preset tsan
	cmake --build --preset tsan --target $(tsan_programs)
	TSAN_OPTIONS="halt_on_error=1 history_size=7 suppressions=$(CURDIR)/tests/tsan.supp" \
	    ctest --test-dir build/tsan --output-on-failure -j 2 -R '$(tsan_tests)'

# clang-tidy by .clang-tidy (its version knows no __constinit), and cppcheck less cmake/cppcheck.txt.
sources := platform block trace logdata log mclog exception trap tools
lint:
	@cmake/install-packages $(build_packages) clang-tidy cppcheck
	cmake --preset native -DZELQCOOD_TESTS=OFF
	run-clang-tidy -quiet -p build/native -extra-arg=-D__constinit= $(sources:%=$(CURDIR)/%/.*) 2>/dev/null
	cppcheck -q --std=c++17 --enable=warning,performance,portability --suppressions-list=cmake/cppcheck.txt \
	    --error-exitcode=1 -Iinclude -Iplatform/include -Iplatform -I. $(sources)

# Lines that no test of the library, the services and the viewer runs through. One test limits the
# size of files, those of the counts too. gcov reckons some counts from others, and where a process died
# in the middle of counting it may give -1, which gcovr must pass over.
coverage:
	@cmake/install-packages $(test_packages) gcovr
	cmake --preset coverage
	cmake --build --preset coverage
	ctest --test-dir build/coverage --output-on-failure -j 2 -E NeedsLittleMemory
	gcovr --root . --object-directory build/coverage --gcov-ignore-parse-errors \
	    --exclude-throw-branches --exclude-unreachable-branches \
	    $(sources:%=--filter '%/') --txt --html-details build/coverage/index.html

# The tests bring an operator new of their own, which valgrind must leave in place.
memcheck:
	@cmake/install-packages $(test_packages) valgrind
	cmake --preset native -DZELQCOOD_TESTS=ON
	cmake --build --preset native --target library_test store_test
	for program in library_test store_test; do \
	    valgrind -q --soname-synonyms=somalloc=nouserintercepts --suppressions=tests/memcheck.supp \
	        --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite,possible \
	        build/native/tests/$$program --gtest_brief=1 || exit 1; \
	done

# Load for SOAK_SECONDS, with some GB in /var/tmp.
SOAK_SECONDS ?= 60
soak:
	@cmake/install-packages $(test_packages)
	cmake --preset i386 -DZELQCOOD_TESTS=ON
	cmake --build --preset i386 --target load_test
	SOAK_SECONDS=$(SOAK_SECONDS) build/i386/tests/load_test

package:
	@cmake/install-packages $(package_packages)
	@echo; echo "== Debian packages"
	rm -rf build/packages
	@for preset in $(package_presets); do \
	    cmake --preset $$preset >/dev/null && cmake --build --preset $$preset && \
	    (cd build/$$preset && cpack) || exit 1; \
	done

test-package: package
	tests/install/package_test.sh $(CURDIR)

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

fuzz fuzz-i386:
	@cmake/install-packages $(fuzz_packages)
	cmake --preset $@
	cmake --build --preset $@
	fuzz/run build/$@ $(FUZZ_SECONDS)

install:
	@cmake/install-packages $(build_packages)
	cmake --preset i386 -DZELQCOOD_TESTS=OFF
	cmake --build --preset i386
	cmake --install build/i386 --prefix $(PREFIX)

docs:
	@cmake/install-packages $(doc_packages)
	@mkdir -p build
	@echo; echo "== reference pages: build/docs/html/index.html"
	{ cat docs/Doxyfile && echo "PROJECT_NUMBER = $(version)"; } | doxygen -

clean:
	rm -rf build
