# The two commands: `make demo` and `make test`. Both install what they need on
# a Debian machine; everything else is ordinary CMake (see CMakePresets.json).

JOBS ?= $(shell nproc)

.PHONY: all demo test test-release test-asan test-tsan fuzz mutants coverage bench bench-quick bench-hostile package reference format lint clean

all: build/release/.tools
	cmake --preset release
	cmake --build --preset release --parallel $(JOBS)

demo: build/release/.demo-tools
	cmake --preset release -DMORVA_BUILD_TESTS=OFF
	cmake --build --preset release --parallel $(JOBS)
	sh cli/demo.sh build/release/bin/morva

test: test-tsan test-asan test-release

test-release test-asan test-tsan: test-%: build/%/.tools
	cmake --preset $* -DMORVA_BUILD_TESTS=ON
	cmake --build --preset $* --parallel $(JOBS) $(if $(filter tsan,$*),--target thread_tests)
	ctest --preset $* --parallel $(JOBS)

# Every fuzzer for some seconds: new findings fail it. See tests/fuzz.
FUZZ_SECONDS ?= 60
fuzz:
	sh scripts/install-tools.sh build fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz --parallel $(JOBS)
	sh scripts/fuzz.sh build/fuzz $(FUZZ_SECONDS)

# The sources broken in small ways, one at a time: do the tests notice? What can be
# chosen says `scripts/mutants.py --help`.
MUTANTS ?= --sample 300 --seed 5
mutants: build/mutants/.tools
	python3 scripts/mutants.py $(MUTANTS)

build/%/.tools:
	sh scripts/install-tools.sh build test
	mkdir -p $(@D) && touch $@

build/%/.demo-tools:
	sh scripts/install-tools.sh build demo
	mkdir -p $(@D) && touch $@

# What of the libraries the tests run, line by line: build/coverage/report/index.html.
coverage:
	sh scripts/install-tools.sh build test coverage
	cmake --preset coverage
	cmake --build --preset coverage --parallel $(JOBS)
	find build/coverage -name '*.gcda' -delete
	ctest --preset coverage --parallel $(JOBS)
	python3 scripts/coverage.py build/coverage build/coverage/report

# All measurements, or a first impression: see docs/performance.md.
bench: plan = full
bench-quick: plan = quick
bench bench-quick:
	sh scripts/install-tools.sh build bench
	cmake --preset release -DMORVA_BUILD_BENCH=ON -DMORVA_BUILD_TESTS=OFF
	cmake --build --preset release --parallel $(JOBS) --target morva_bench
	mkdir -p build/bench
	build/release/bin/morva_bench $(plan) build/bench/samples.csv
	python3 bench/suite/report.py build/bench/samples.csv build/bench/report

# A million keys in one bucket, under every hash method. Takes long.
bench-hostile:
	sh scripts/install-tools.sh build bench
	cmake --preset release -DMORVA_BUILD_BENCH=ON -DMORVA_BUILD_TESTS=OFF
	cmake --build --preset release --parallel $(JOBS) --target hostile_keys
	mkdir -p build/bench
	build/release/bin/hostile_keys build/bench/hostile.csv
	python3 bench/hostile/report.py build/bench/hostile.csv build/bench/hostile.svg

# The Debian packages, in build/package.
package:
	sh scripts/install-tools.sh build package
	cmake -C packaging/debian.cmake -S . -B build/package
	cmake --build build/package --parallel $(JOBS)
	cd build/package && cpack

# The reference as web pages, in build/release/docs/reference/html.
reference:
	sh scripts/install-tools.sh build reference
	cmake --preset release -DMORVA_BUILD_TESTS=OFF
	cmake --build --preset release --target reference

format:
	find include src host recording cli examples bench tests -name '*.h' -o -name '*.hpp' -o -name '*.cpp' -o -name '*.c' | xargs clang-format -i

lint:
	sh scripts/install-tools.sh build test lint
	cmake --preset lint
	run-clang-tidy -quiet -p build/lint '$(CURDIR)/(src|host|cli|recording)/.*\.cpp'

clean:
	rm -rf build
