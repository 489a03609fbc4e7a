#!/usr/bin/env bash
# Sets up, makes a demo card database (with card images) when there is none,
# and opens the duplicates wizard on it; without a display, lists the
# duplicates instead.
#   OMBREL_DB=path/to/cards.db scripts/run.sh    to use another database
#   OMBREL_LANG=de scripts/run.sh                the wizard in German (de, fr, es, en)
set -euo pipefail
cd "$(dirname "$0")/.."
OMBREL_SANITIZE=OFF scripts/setup.sh
DB="${OMBREL_DB:-data/demo.db}"
mkdir -p "$(dirname "$DB")"
if [ ! -f "$DB" ]; then
  echo "Creating a demo database of 2000 cards in $DB ..."
  ./build/src/cli/ombrel sample --cards 2000 --db "$DB" --seed 1
fi
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  exec ./build/src/cli/ombrel wizard --db "$DB" ${OMBREL_LANG:+--lang "$OMBREL_LANG"}
fi
echo "No display: listing the duplicates instead of opening the wizard."
./build/src/cli/ombrel find --db "$DB" --type all
