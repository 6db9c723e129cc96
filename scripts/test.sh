#!/usr/bin/env bash
# Builds the programs and benchmarks as they are shipped, then builds and runs every test: the whole suite plain, once
# more under ASan and UBSan, and the threaded suites under TSan. The plain run comes last, and the last line is how ctest
# closes it.
#   scripts/test.sh [release|plain|asan|tsan ...]     default: release asan tsan plain
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh
jobs=$(nproc)

step() {
  echo
  echo "== $1"
}

# run_preset PRESET "TARGETS" [CTEST ARGUMENTS]
run_preset() {
  local preset=$1
  local -a targets
  read -ra targets <<<"$2"
  shift 2
  step "build ($preset)"
  cmake --preset "$preset" "${launcher[@]}" -DGVX_BUILD_BENCH=OFF >/dev/null
  cmake --build --preset "$preset" --target "${targets[@]}" -j "$jobs" -- --quiet
  if [[ $preset == debug ]]; then
    step "ABI of the last release"
    scripts/check-abi.sh "build/$preset"
  fi
  step "tests ($preset)"
  ctest --test-dir "build/$preset" --output-on-failure -j "$jobs" "$@"
}

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

# The optimiser finds faults that the other builds do not look for, and warnings are errors there too.
build_release() {
  step "build (release)"
  cmake --preset release "${launcher[@]}" -DGVX_BUILD_BENCH=ON -DGVX_BUILD_TESTS=OFF >/dev/null
  cmake --build --preset release -j "$jobs" -- --quiet
}

suites=("$@")
if ((${#suites[@]} == 0)); then
  suites=(release asan tsan plain)
fi
for suite in "${suites[@]}"; do
  case $suite in
    release) build_release ;;
    plain) run_preset debug "all all_verify_interface_header_sets" ;;
    asan) run_preset asan all ;;
    tsan) run_preset tsan gvx_threaded_tests -L threads ;;
    *)
      echo "unknown suite: $suite (release, plain, asan or tsan)" >&2
      exit 2
      ;;
  esac
done
