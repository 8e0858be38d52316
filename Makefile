# The front door. Every target sees to the packages it needs, configures the CMake preset of its
# name, builds it and, where the name says so, runs its tests.
#
#   make               build/linux: libTavrix32.so, libquern.a, tavrix, the tests
#   make run           the program alone, and runs it on this project's own folder (same as scripts/run)
#   make test          all of it, then the tests (same as scripts/test)
#   make test-x86      the same tests as a 32-bit program
#   make test-asan     the same tests under the address and undefined-behaviour sanitizers
#   make test-faults   those tests alone that let every allocation and system call fail in turn
#   make windows       build/windows-x86: Tavrix32.dll, its import library, tavrix.exe, the tests
#   make test-windows  those tests and a client of the DLL, under Wine
#   make bench         every benchmark, beside what a user would pick instead
#   make coverage      line and branch coverage of the tests, in build/coverage/report
#   make fuzz          every fuzz target for FUZZ_SECONDS (60) each
#   make valgrind      the tests under valgrind
#   make mutate        changes in the library that the tests let live (MUTANTS, 100, at random)
#   make lint          formatting and static analysis
#   make docs          reference pages from the headers, in build/docs
#   make install       below DESTDIR and PREFIX (/usr/local)
#   make test-install  installs into an empty folder and runs the examples against it
#   make dist-windows  build/tavrix-windows.zip: the DLL, its import library, tavrix.exe, the header,
#                      the Visual Basic module
#   make clean         away with build/

FUZZ_SECONDS ?= 60

# $(call build,preset,components)
define build
@scripts/setup $(2)
@cmake --preset $(1) -Wno-dev >/dev/null
@cmake --build --preset $(1)
endef

all: linux

linux:
	$(call build,linux,linux)

run:
	@scripts/run

test:
	@scripts/test

test-x86:
	$(call build,linux-x86,x86)
	@ctest --preset linux-x86

test-asan:
	$(call build,asan,linux)
	@ctest --preset asan

test-faults:
	$(call build,linux,linux)
	@ctest --preset linux -R 'MayFail|AfterEachFault'

windows:
	$(call build,windows-x86,windows)

test-windows: windows
	@scripts/setup wine
	@scripts/wine32 --setup
	@ctest --preset windows-x86

bench:
	$(call build,bench,bench)
	@scripts/bench

coverage:
	$(call build,coverage,coverage)
	@find build/coverage -name '*.gcda' -delete
	@ctest --preset coverage
	@scripts/coverage

fuzz:
	$(call build,fuzz,fuzz)
	@scripts/fuzz $(FUZZ_SECONDS)

valgrind: linux
	@scripts/setup valgrind
	@scripts/valgrind

MUTANTS ?= 100
mutate: linux
	@scripts/setup mutate
	@scripts/mutate --count $(MUTANTS)

docs:
	@scripts/setup docs
	@scripts/docs

PREFIX ?= /usr/local
install: linux
	@cmake --install build/linux --prefix $(PREFIX)

test-install: linux
	@scripts/setup install
	@scripts/test-install linux

dist-windows: windows
	@rm -rf build/dist && cmake --install build/windows-x86 --prefix build/dist/tavrix >/dev/null
	@cd build/dist && cmake -E tar cf ../tavrix-windows.zip --format=zip tavrix
	@echo build/tavrix-windows.zip

lint:
	@scripts/setup lint
	@cmake --preset linux -Wno-dev >/dev/null
	@scripts/lint

clean:
	rm -rf build

.PHONY: all linux run test test-x86 test-asan windows test-windows test-faults bench coverage fuzz \
  valgrind mutate docs install test-install dist-windows lint clean
