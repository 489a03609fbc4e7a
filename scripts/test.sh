#!/usr/bin/env bash
# Sets up (packages, configure, build) and runs the whole test suite.
# The suite runs under AddressSanitizer and UndefinedBehaviorSanitizer by
# default so memory faults fail it; OMBREL_SANITIZE=OFF runs a plain build.
# Then the example host is built and tested against the installed build.
set -euo pipefail
cd "$(dirname "$0")/.."
export OMBREL_SANITIZE="${OMBREL_SANITIZE:-ON}"
export OMBREL_BUILD_BENCH="${OMBREL_BUILD_BENCH:-OFF}"  # benchmarks are not tests
scripts/setup.sh
BUILD_DIR="${OMBREL_BUILD_DIR:-build}"
[ "$OMBREL_SANITIZE" = "ON" ] && BUILD_DIR="${OMBREL_BUILD_DIR:-build-asan}"
export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j"$(nproc)" "$@"
# A host application's view: the package installed, the example host built
# against it alone and its test run (OMBREL_TEST_HOST=OFF leaves it out).
if [ "${OMBREL_TEST_HOST:-ON}" = "ON" ]; then
  scripts/test_host.sh "$BUILD_DIR"
fi
