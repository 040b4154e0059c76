# The house's short commands. The building itself is CMake's; the presets are in CMakePresets.json.
.DEFAULT_GOAL := help
.PHONY: help run test bench fuzz build deps install format format-check lint clean

PRESET := release
PREFIX ?= /usr/local
SECONDS := 60
JOBS ?= $(shell nproc)
CLIP ?= examples/concert.mp4
# By the environment, so that a name may hold any character.
export CLIP DESTDIR

TARN := build/release/src/cli/tarn
DEMO := build/release/demo.mp4
# A clip of one's own is saved whole.
DEMO_RANGE := $(if $(filter examples/concert.mp4,$(value CLIP)),--in 2000 --out 8000)
DEMO_EFFECTS := $(DEMO_RANGE) --bass 30 --reverb hall-mid --compressor mid --fade --verify
ENSURE := packaging/ensure-packages.sh
SOURCES := git -c safe.directory='*' ls-files -z '*.h' '*.cpp'

help:
	@echo 'make run [CLIP=my.mp4]    build, then treat and save a clip (a sample when none is named)'
	@echo 'make test [PRESET=asan]   build and run all tests (presets: release debug asan tsan)'
	@echo 'make bench                build and run all benchmarks'
	@echo 'make fuzz [SECONDS=60]    build and run every fuzz target, each for that long'
	@echo 'make build [PRESET=...]   build alone'
	@echo 'make install [PREFIX=/usr/local] [DESTDIR=]'
	@echo 'make format, make lint    clang-format in place, clang-tidy'
	@echo 'make deps                 install the packages that building and testing need'
	@echo 'make clean                remove build/'
	@echo 'Each command first installs the Debian packages that it misses.'

run:
	@$(ENSURE) build
	@cmake --preset release -Wno-dev >/dev/null
	@cmake --build --preset release --target tarn -j $(JOBS)
	@rm -f '$(DEMO)'
	@$(TARN) info -- "$$CLIP"
	@echo
	@echo "tarn export $$CLIP $(DEMO) $(DEMO_EFFECTS)"
	@$(TARN) export "$$CLIP" '$(DEMO)' $(DEMO_EFFECTS)
	@echo 'Play it with any player: $(CURDIR)/$(DEMO)'

test: build
	ctest --preset $(PRESET) -j $(JOBS)

build:
	@$(ENSURE) build
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) -j $(JOBS)

bench: PRESET := release
bench: build
	@$(ENSURE) bench
	@for program in build/release/bench/*_bench bench/*_bench.sh; do \
	    if [ -x "$$program" ]; then echo "$$program" && "$$program" || exit 1; fi; \
	done

fuzz:
	@$(ENSURE) build fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	fuzz/run.sh $(SECONDS)

install: PRESET := release
install: build
	cmake --install build/release --prefix '$(PREFIX)'

deps:
	@$(ENSURE) build format

format:
	@$(ENSURE) format
	@$(SOURCES) | xargs -0 -r clang-format -i

format-check:
	@$(ENSURE) format
	@$(SOURCES) | xargs -0 -r clang-format --dry-run -Werror

# The compiler's own warning switches are not all known to clang.
lint: PRESET := release
lint: build
	@$(ENSURE) lint
	@$(SOURCES) | grep -zv -e '\.h$$' -e '^fuzz/' | \
	    xargs -0 -r -n 1 -P $(JOBS) clang-tidy -p build/release --quiet \
	        --extra-arg=-Wno-unknown-warning-option

clean:
	rm -rf build
