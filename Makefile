# Entry points for a fresh Debian machine:
#   make demo    install what is missing, build, solve a shipped example
#   make check   install what is missing, build with warnings as errors, run the whole test suite
# Further targets:
#   make build       Release build in build/
#   make sanitize    ASan+UBSan debug build with the audit checks in build-sanitize/ and the whole suite under it
#   make bench       micro-benchmarks (bench/micro) in build-bench/
BUILD    ?= build
JOBS     ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES := g++ cmake make libboost-dev libxml2-dev bison flex libgtest-dev googletest libbenchmark-dev clasp flatzinc

.PHONY: deps build demo check sanitize bench clean

deps:
	@missing=""; \
	for p in $(PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	command -v python3 >/dev/null 2>&1 || missing="$$missing python3"; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" != 0 ]; then echo "missing packages:$$missing (run as root to install)"; exit 1; fi; \
	  echo "installing:$$missing"; \
	  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $$missing >/dev/null 2>&1 || \
	  { apt-get update >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $$missing; }; \
	fi

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS) >/dev/null
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	./$(BUILD)/zelk examples/queens-8.xml

check:
	$(MAKE) build CMAKE_ARGS="-DZELK_WERROR=ON $(CMAKE_ARGS)"
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE slow

sanitize: deps
	cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DZELK_SANITIZE=ON -DZELK_AUDIT=ON -DZELK_WERROR=ON $(CMAKE_ARGS) >/dev/null
	cmake --build build-sanitize -j $(JOBS)
	cd build-sanitize && ctest --output-on-failure -j $(JOBS) -LE slow

bench: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DZELK_BENCH=ON >/dev/null
	cmake --build build-bench -j $(JOBS)

clean:
	rm -rf build build-sanitize build-bench
