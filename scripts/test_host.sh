#!/usr/bin/env bash
# Installs a built tree into a temporary prefix, builds examples/host against
# that installation alone and runs the example's offscreen test: what a host
# application sees of the installed package.
#   scripts/test_host.sh [BUILD_DIR]     default: build-asan, or build with OMBREL_SANITIZE=OFF
# A sanitizer build's library needs its runtime loaded first, so the example
# is then built with the same sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR="${1:-$([ "${OMBREL_SANITIZE:-ON}" = "ON" ] && echo build-asan || echo build)}"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cmake --install "$BUILD_DIR" --prefix "$work/prefix" >/dev/null

flags=()
if grep -q '^OMBREL_SANITIZE:BOOL=ON$' "$BUILD_DIR/CMakeCache.txt"; then
  san="-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined"
  flags=(-DCMAKE_CXX_FLAGS="$san" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined")
fi
cmake -S examples/host -B "$work/host" -DCMAKE_PREFIX_PATH="$work/prefix" "${flags[@]}" >/dev/null
cmake --build "$work/host" -j"$(nproc)" >/dev/null
QT_QPA_PLATFORM=offscreen ctest --test-dir "$work/host" --output-on-failure
