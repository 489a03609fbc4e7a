#!/usr/bin/env bash
# Installs every Debian package the project needs, then configures and builds.
# Idempotent: packages already present are skipped, the build is incremental.
#   scripts/setup.sh                 release build in build/
#   OMBREL_SANITIZE=ON scripts/setup.sh   ASan+UBSan build in build-asan/
#   OMBREL_BUILD_BENCH=OFF                leaves the benchmarks out
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
  build-essential cmake pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev sqlite3
  libpng-dev libjpeg-dev
  nlohmann-json3-dev libcli11-dev libutf8proc-dev
  qt6-base-dev qt6-base-dev-tools libgl-dev
  qt6-qpa-plugins qt6-translations-l10n fonts-dejavu-core
  xvfb xauth
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update
  $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi

SANITIZE="${OMBREL_SANITIZE:-OFF}"
BUILD_DIR="${OMBREL_BUILD_DIR:-build}"
[ "$SANITIZE" = "ON" ] && BUILD_DIR="${OMBREL_BUILD_DIR:-build-asan}"
BUILD_TYPE=Release; [ "$SANITIZE" = "ON" ] && BUILD_TYPE=RelWithDebInfo

BENCH="${OMBREL_BUILD_BENCH:-ON}"
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE="$BUILD_TYPE" -DOMBREL_SANITIZE="$SANITIZE" -DOMBREL_BUILD_BENCH="$BENCH" >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"
