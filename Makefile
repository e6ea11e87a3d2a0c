# Short commands for the README. Each installs missing system packages first.
BUILD_DIR ?= build
ASAN_DIR ?= build-sanitize
TSAN_DIR ?= build-tsan
BENCH_DIR ?= build-bench
PYTHON_DIR ?= build-python
DOCS_DIR ?= build-docs
VENV_DIR ?= build-venv
# The module is built for, and tested with, the system's Python.
PYTHON ?= /usr/bin/python3
JOBS ?= 2
# CI (which sets CI=true) builds with warnings as errors.
WERROR ?= $(if $(CI),ON,OFF)
CMAKE_FLAGS ?=

.PHONY: all deps build test test-sanitize test-tsan fuzz python python-test python-package-test \
	python-bench demo bench compare interop interop-kora reading format docs clean

all: build

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DKORA_WERROR=$(WERROR) $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS)

test-sanitize: deps
	cmake -S . -B $(ASAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORA_SANITIZE=ON \
	  -DKORA_WERROR=$(WERROR) $(CMAKE_FLAGS)
	cmake --build $(ASAN_DIR) -j$(JOBS)
	cd $(ASAN_DIR) && ctest --output-on-failure -j$(JOBS)

# ThreadSanitizer: only the library and the tests that read from several threads at once, so
# that CI stays quick. --no-tests=error fails the target if the filter matches nothing.
test-tsan: deps
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORA_TSAN=ON \
	  -DKORA_BUILD_TOOLS=OFF -DKORA_WERROR=$(WERROR) $(CMAKE_FLAGS)
	cmake --build $(TSAN_DIR) -j$(JOBS) --target kora_tests
	cd $(TSAN_DIR) && ctest --output-on-failure --no-tests=error -j$(JOBS) -R "ConcurrentRead|ReadAhead"

# The Python package, in $(PYTHON_DIR)/python/kora (put $(PYTHON_DIR)/python on PYTHONPATH),
# built as pip builds it: the library static inside the extension.
python:
	bash scripts/install-deps.sh --python
	cmake -S . -B $(PYTHON_DIR) -DCMAKE_BUILD_TYPE=Release -DKORA_BUILD_PYTHON=ON \
	  -DKORA_BUILD_TESTS=OFF -DKORA_SHARED=OFF -DPython3_EXECUTABLE=$(PYTHON) \
	  -DKORA_WERROR=$(WERROR) $(CMAKE_FLAGS)
	cmake --build $(PYTHON_DIR) -j$(JOBS) --target kora_python

python-test: python
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) -m pytest -q python/tests

# The package as users get it: `pip install --no-build-isolation .` into a fresh virtual
# environment that sees the system's packages (numpy, pandas, pytest, RDKit, gemmi), then the
# suite run from a directory outside the repository against the installed package.
python-package-test:
	bash scripts/install-deps.sh --python --rdkit --gemmi
	rm -rf $(VENV_DIR)
	$(PYTHON) -m venv --system-site-packages $(VENV_DIR)
	CMAKE_ARGS="-DKORA_WERROR=$(WERROR)" CMAKE_BUILD_PARALLEL_LEVEL=$(JOBS) \
	  $(VENV_DIR)/bin/pip install --no-build-isolation --no-index --no-cache-dir .
	outside=$$(mktemp -d) && cd $$outside && \
	  env -u PYTHONPATH $(CURDIR)/$(VENV_DIR)/bin/python -c \
	    'import kora, sys; assert kora.__file__.startswith(sys.prefix), kora.__file__' && \
	  env -u PYTHONPATH $(CURDIR)/$(VENV_DIR)/bin/python -m pytest -q -p no:cacheprovider \
	    $(CURDIR)/python/tests; status=$$?; rm -rf $$outside; exit $$status

# Reading the largest SD file of the corpus through kora and through RDKit (installs RDKit's
# Python package when missing).
python-bench: python
	bash scripts/install-deps.sh --rdkit
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) python/bench_sd.py

# The probes' own tests (pairing and comparing entries with the peers replaced), then every
# corpus file converted by kora (standard mode) to every format and read back by kora: every
# entry must agree with the source on what the target format carries (run by CI).
interop-kora: build python
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) -m pytest -q -p no:cacheprovider probes
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) probes/interop.py --readers kora \
	  --kora $(BUILD_DIR)/bin/kora --require-all

# The same read back by kora and by RDKit, Open Babel, gemmi and cctbx (installed from Debian
# when missing); prints the matrix of agreeing entries and every disagreement.
interop: build python
	bash scripts/install-deps.sh --peers
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) probes/interop.py \
	  --kora $(BUILD_DIR)/bin/kora --details $(BUILD_DIR)/interop-details.tsv

# Every corpus file read by kora (standard mode) and by a peer: RDKit for SD and Mol2, gemmi
# for PDB, cctbx for SHELX (installed from Debian when missing); prints the table of agreeing
# entries and every difference grouped by reason (each one in $(PYTHON_DIR)/reading-details.tsv).
reading: python
	bash scripts/install-deps.sh --peers
	PYTHONPATH=$(CURDIR)/$(PYTHON_DIR)/python $(PYTHON) probes/reading.py \
	  --details $(PYTHON_DIR)/reading-details.tsv

# The libFuzzer harnesses (clang), each for FUZZ_SECONDS on its seeds; a crash, sanitizer
# report, slow input or runaway memory fails the target and leaves the input in
# build-fuzz/findings/.
FUZZ_SECONDS ?= 60
fuzz:
	bash fuzz/run.sh $(FUZZ_SECONDS)

# kora against RDKit, Open Babel and gemmi (installs them; about 35 minutes).
compare:
	bash bench/compare_peers.sh

demo: build
	bash scripts/demo.sh $(BUILD_DIR)/bin/kora

bench: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DKORA_BUILD_BENCH=ON \
	  -DKORA_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_DIR) -j$(JOBS)
	$(BENCH_DIR)/bin/getline_bench
	$(BENCH_DIR)/bin/bond_detector_bench
	$(BENCH_DIR)/bin/mol2_bench
	$(BENCH_DIR)/bin/pdb_bench
	$(BENCH_DIR)/bin/mdl_bench
	$(BENCH_DIR)/bin/res_bench

# The API reference from the public headers (Doxygen; any warning, or a name of the facade
# include/kora/io.hpp left undocumented, fails the target) in $(DOCS_DIR)/api/index.html, and
# the manual page of the kora program from its --help-all (help2man) in $(DOCS_DIR)/kora.1.
docs: build
	bash scripts/install-deps.sh --docs
	rm -rf $(DOCS_DIR)/api
	bash scripts/api-docs.sh $(DOCS_DIR)/api
	bash scripts/man-page.sh $(BUILD_DIR)/bin/kora $(DOCS_DIR)/kora.1
	@echo "docs: $(DOCS_DIR)/api/index.html and $(DOCS_DIR)/kora.1 (man -l $(DOCS_DIR)/kora.1)"

format:
	git ls-files '*.hpp' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR) $(BENCH_DIR) $(PYTHON_DIR) $(DOCS_DIR) $(VENV_DIR) \
	  build-pip build-fuzz build-peers python/kora.egg-info
