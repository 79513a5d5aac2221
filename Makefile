# Entry points. Each target installs what it needs (scripts/bootstrap), configures with a
# CMake preset, builds, and runs.
JOBS ?= $(shell nproc)
# ccache shares results between checkouts (paths below the checkout are hashed relative to it).
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := 1
FUZZ_SECONDS ?= 30

.PHONY: all bootstrap demo test check tsan bench fuzz install clean

all: bootstrap
	cmake --preset release >/dev/null && cmake --build --preset release -j $(JOBS)

bootstrap:
	@./scripts/bootstrap $(BOOTSTRAP_SET)

demo: all
	./Tools/zon/demo.sh build/release/Tools/zon/zon

test: all
	ctest --preset release -j $(JOBS)

check: bootstrap
	cmake --preset asan >/dev/null && cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

tsan: bootstrap
	cmake --preset tsan >/dev/null && cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

# The benchmarks also install the libraries they compare against (a target-specific variable
# reaches the prerequisites, so `all` bootstraps with them).
bench: BOOTSTRAP_SET := bench
bench: all
	./Benchmarks/run.sh build/release/Benchmarks

fuzz: bootstrap
	cmake --preset fuzz >/dev/null && cmake --build --preset fuzz -j $(JOBS)
	./Fuzz/run.sh build/fuzz/Fuzz $(FUZZ_SECONDS)

install: all
	cmake --install build/release --prefix $(or $(PREFIX),/usr/local)

clean:
	rm -rf build
