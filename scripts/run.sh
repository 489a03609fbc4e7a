#!/usr/bin/env bash
# Sets up, makes a demo card database when there is none, and finds its duplicates.
#   OMBREL_DB=path/to/cards.db scripts/run.sh    to use another database
set -euo pipefail
cd "$(dirname "$0")/.."
OMBREL_SANITIZE=OFF scripts/setup.sh
DB="${OMBREL_DB:-data/demo.db}"
mkdir -p "$(dirname "$DB")"
if [ ! -f "$DB" ]; then
  echo "Creating a demo database of 2000 cards in $DB ..."
  ./build/src/cli/ombrel sample --cards 2000 --db "$DB" --seed 1
fi
./build/src/cli/ombrel find --db "$DB" --type all
