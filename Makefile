# The short road. CMakePresets.json has the long one.

JOBS ?= $(shell nproc)
BUILD := build/release
PREFIX ?= /usr/local
GENERATOR := $(if $(shell command -v ninja),-G Ninja)
QZ := $(BUILD)/qz

.PHONY: all setup configure demo test fuzz tsan install bench compare docs format check clean

all: configure
	cmake --build $(BUILD) -j $(JOBS)

# What is missing comes first, so everything behind it may rely on the tools being there.
setup:
	@scripts/setup.sh

# A recursive call, because whether ninja is there is known only after the setup.
configure: setup
	@$(MAKE) --no-print-directory $(BUILD)/CMakeCache.txt

$(BUILD)/CMakeCache.txt: CMakePresets.json
	cmake --preset release $(GENERATOR)

# Builds the library and the tool only.
demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target qz_tool
	@echo
	@echo "examples/titanic.qz: a chain fitted to 2201 persons"
	@echo
	@$(QZ) run examples/titanic.qz --print NXX,GVX,GEX,DIM,RES,LNZ,iterations --marginals
	@echo
	@echo "examples/titanic_reload.qz: the stored model, read back by another program"
	@echo
	@$(QZ) run examples/titanic_reload.qz --print GVX,GEX,DIM,LNZ --marginals

test: all
	ctest --preset release -j $(JOBS)

# Searches for inputs that break a reader, for some seconds per target.
fuzz: setup
	@cmake --preset fuzz $(GENERATOR)
	@cmake --build --preset fuzz -j $(JOBS)
	@JOBS=$(JOBS) scripts/fuzz.sh $(SECONDS_EACH)

# The test of threads under the thread sanitizer.
tsan: setup
	@cmake --preset tsan $(GENERATOR)
	@cmake --build --preset tsan -j $(JOBS)
	@ctest --preset tsan

# Library, headers, tool and documents, for find_package(QZ) and pkg-config. DESTDIR is respected.
install: configure
	@cmake --build $(BUILD) -j $(JOBS) --target qz qz_tool
	@cmake --install $(BUILD) --prefix $(PREFIX)

bench: configure
	@cmake --build $(BUILD) -j $(JOBS) --target benches
	@mkdir -p $(BUILD)/bench/results
	@for program in $(BUILD)/bench/*_bench; do \
	  $$program --benchmark_out=$(BUILD)/bench/results/$${program##*/}.json \
	    --benchmark_out_format=json $(BENCH_FLAGS) || exit 1; \
	done

# make compare BEFORE=../old/build/release: this build against another one.
compare: configure
	@cmake --build $(BUILD) -j $(JOBS) --target benches
	@scripts/compare_builds.py $(BEFORE) $(BUILD) $(COMPARE_FLAGS)

# The parts of docs/ that follow from the sources.
docs: configure
	@cmake --build $(BUILD) -j $(JOBS) --target docs

format: setup
	@scripts/format.sh

check: setup
	@.ci/run

clean:
	rm -rf build titanic.model hair_eye_color.tgf hair_eye_color.fg survey_filled.csv
