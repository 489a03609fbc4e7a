#!/usr/bin/env bash
# Fault injection on a 20,000-card database: what a hostile or unlucky user
# does to the ombrel command. Not part of the test suite (it takes minutes).
#   scripts/fault_injection.sh [path/to/ombrel] [rounds]
# Every case is counted as tried and passed; the run exits 1 if any failed.
# A case passes when nothing was lost or damaged (PRAGMA integrity_check,
# all-or-nothing counts, files left as they were), nothing hung (each command
# has a time limit) and the exit code tells the truth.
set -uo pipefail
cd "$(dirname "$0")/.."
OMBREL="$(realpath "${1:-build/src/cli/ombrel}")"
ROUNDS="${2:-8}"
WORK="$(mktemp -d /tmp/ombrel-faults.XXXXXX)"
chmod 755 "$WORK"
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

tried=0
passed=0
declare -A tried_in passed_in exits_in
# The exit codes of the commands signalled: 137 (killed) and 130 (stopped)
# show the signal landed in the middle, 0 that the command had finished.
noted() { exits_in[$1]="${exits_in[$1]:-} $2"; }
ok() { # class description
  tried=$((tried + 1)); passed=$((passed + 1))
  tried_in[$1]=$((${tried_in[$1]:-0} + 1)); passed_in[$1]=$((${passed_in[$1]:-0} + 1))
}
bad() { # class description
  tried=$((tried + 1)); tried_in[$1]=$((${tried_in[$1]:-0} + 1)); passed_in[$1]=$((${passed_in[$1]:-0} + 0))
  echo "FAILED [$1] $2" >&2
}
check() { # class description command...
  local class=$1 what=$2; shift 2
  if "$@"; then ok "$class" "$what"; else bad "$class" "$what"; fi
}
integrity() { [ "$(sqlite3 "$1" 'PRAGMA integrity_check' 2>&1)" = ok ]; }
cards() { sqlite3 "$1" 'SELECT count(*) FROM cards' 2>/dev/null; }
export -f integrity cards
fresh() { cp base.db "$1"; rm -f "$1"-wal "$1"-shm "$1"-journal; }
# The cards a file holds: 0 when it is missing or empty (a hot journal is
# rolled back first), "damaged" when it fails the integrity check.
held() {
  [ -e "$1" ] || { echo 0; return; }
  integrity "$1" || { echo damaged; return; }
  [ "$(sqlite3 "$1" "SELECT count(*) FROM sqlite_master WHERE name = 'cards'")" = 1 ] || { echo 0; return; }
  cards "$1"
}
run() { timeout --kill-after=5 60 "$OMBREL" "$@"; }
# Milliseconds to wait before a signal: spread over what the command takes.
pause() { sleep "$(awk -v s="$RANDOM" -v max="$1" 'BEGIN { srand(s); printf "%.3f", rand() * max / 1000 }')"; }

echo "preparing a 20,000-card database in $WORK"
run sample --cards 20000 --no-images --seed 5 --db base.db >/dev/null || exit 1
run export --db base.db base.jsonl >/dev/null || exit 1
sed 's/^{"id":[0-9]*,/{/' base.jsonl > noids.jsonl
run sample --cards 200 --seed 6 --db images.db >/dev/null || exit 1
BASE_CARDS=$(cards base.db)
# How long each command takes here when left alone: signals then land at a
# random moment within that time (the machine's speed varies a lot).
took() { local start=$(date +%s%N); "$@" > /dev/null 2>&1; echo $((($(date +%s%N) - start) / 1000000)); }
rm -f t.db; MS_IMPORT_NEW=$(took "$OMBREL" import noids.jsonl --db t.db)
fresh t.db; MS_IMPORT=$(took "$OMBREL" import noids.jsonl --db t.db)
fresh t.db; MS_SAMPLE=$(took "$OMBREL" sample --cards 5000 --no-images --db t.db)
fresh t.db; MS_APPLY_REMOVE=$(took "$OMBREL" apply --db t.db --action remove-exact --yes)
fresh t.db; MS_APPLY_MERGE=$(took "$OMBREL" apply --db t.db --action merge-compatible --yes)
MS_EXPORT=$(took "$OMBREL" export --db images.db out.jsonl)
echo "left alone: import $MS_IMPORT_NEW/$MS_IMPORT ms, sample $MS_SAMPLE ms, apply $MS_APPLY_REMOVE/$MS_APPLY_MERGE ms, export $MS_EXPORT ms"

# ---- kills (SIGKILL) and Ctrl-C (SIGINT) during every writing command -------------
# import and sample are all or nothing; apply is kill-safe set by set and a
# rerun finishes; export leaves its target old or whole and nothing beside it.
for signal in KILL INT; do
  for ((r = 0; r < ROUNDS; r++)); do
    # import of 20,000 cards into an existing database and into a new file
    for target in existing new; do
      rm -f t.db t.db-*; [ $target = existing ] && fresh t.db
      before=$(held t.db)
      "$OMBREL" import noids.jsonl --db t.db >/dev/null 2>&1 & pid=$!
      [ $target = new ] && pause $MS_IMPORT_NEW || pause $MS_IMPORT; kill -s $signal $pid 2>/dev/null; { wait $pid; } 2>/dev/null; code=$?
      after=$(held t.db); noted "kill $signal import" $code
      # all or nothing: the cards before, or those and the file's
      check "kill $signal import" "$target round $r (exit $code, $before -> $after)" \
        bash -c "[ '$after' = '$before' ] || [ '$after' = $((before + BASE_CARDS)) ]"
    done
    # sample of 5,000 cards into a copy
    fresh t.db
    "$OMBREL" sample --cards 5000 --no-images --seed $r --db t.db >/dev/null 2>&1 & pid=$!
    pause $MS_SAMPLE; kill -s $signal $pid 2>/dev/null; { wait $pid; } 2>/dev/null; noted "kill $signal sample" $?
    after=$(integrity t.db && cards t.db)
    check "kill $signal sample" "round $r ($after)" bash -c "[ '$after' = $BASE_CARDS ] || [ '$after' = $((BASE_CARDS + 5000)) ]"
    # apply, both actions, then a rerun that must finish the job
    for action in remove-exact merge-compatible; do
      fresh t.db
      "$OMBREL" apply --db t.db --action $action --yes >/dev/null 2>&1 & pid=$!
      [ $action = remove-exact ] && pause $MS_APPLY_REMOVE || pause $MS_APPLY_MERGE; kill -s $signal $pid 2>/dev/null; { wait $pid; } 2>/dev/null; code=$?
      sound=no; integrity t.db && sound=yes; noted "kill $signal apply" $code
      run apply --db t.db --action $action --yes >/dev/null 2>&1
      type=${action%%-*}; [ $type = remove ] && type=exact || type=compatible
      left=$(run find --db t.db --type $type --json 2>/dev/null | tr -d ' \n')
      check "kill $signal apply" "$action round $r (exit $code, sound $sound, left '$left')" \
        bash -c "[ $sound = yes ] && [ '$left' = '[]' ]"
    done
    # export to a file that already holds an older export
    echo '{"old": true}' > out.jsonl
    "$OMBREL" export --db images.db out.jsonl >/dev/null 2>&1 & pid=$!
    pause $MS_EXPORT; kill -s $signal $pid 2>/dev/null; { wait $pid; } 2>/dev/null; noted "kill $signal export" $?
    lines=$(wc -l < out.jsonl); leftovers=$(ls -A | grep -c '^\.out\.jsonl\.' || true)
    check "kill $signal export" "round $r ($lines lines, $leftovers temporary files)" \
      bash -c "([ $lines = 1 ] || [ $lines = 201 ]) && [ $leftovers = 0 ]"
  done
done

# ---- find while another process writes ------------------------------------------
for ((r = 0; r < ROUNDS; r++)); do
  fresh t.db
  "$OMBREL" apply --db t.db --action merge-compatible --yes >/dev/null 2>&1 & pid=$!
  pause $MS_APPLY_MERGE
  run find --db t.db --json > f.json 2> f.err; code=$?
  wait $pid
  check "find during apply" "round $r (exit $code: $(head -c 120 f.err))" \
    bash -c "[ $code = 0 ] && python3 -c 'import json,sys; json.load(open(\"f.json\"))'"
  fresh t.db
  run sample --cards 3000 --no-images --seed $((r + 50)) --db t.db >/dev/null 2>&1 & pid=$!
  pause 500
  run find --db t.db --type all > f.txt 2> f.err; code=$?
  wait $pid
  check "find during sample" "round $r (exit $code: $(head -c 120 f.err))" bash -c "[ $code = 0 ]"
done

# ---- two applies at once: each card merged once --------------------------------------
fresh one.db
expected=$(run apply --db one.db --action merge-compatible --yes | sed -n 's/^Merged \([0-9]*\) .*/\1/p')
for ((r = 0; r < ROUNDS / 2 + 1; r++)); do
  fresh t.db
  "$OMBREL" apply --db t.db --action merge-compatible --yes > a.out 2>&1 & pid=$!
  pause 300
  run apply --db t.db --action merge-compatible --yes > b.out 2>&1; second=$?
  wait $pid; first=$?
  total=$(cat a.out b.out | sed -n 's/^Merged \([0-9]*\) .*/\1/p' | awk '{ s += $1 } END { print s + 0 }')
  check "two applies" "round $r (exits $first $second, merged $total of $expected)" \
    bash -c "[ $first = 0 ] && [ $second = 0 ] && [ '$total' = '$expected' ] && integrity t.db"
done

# ---- bad input: each file must be refused, naming its line, changing nothing -------------
mkfifo pipe.png
truncate -s 60M huge.png
ln -sf /dev/zero zero-link.png
mkdir -p folder.png
printf 'BM' > two-bytes.bmp
printf '\x89PNG\r\n\x1a\nthen garbage' > garbage.png
"$OMBREL" export --db images.db images.jsonl >/dev/null
first_png=$(ls images-images | head -1)
head -c 500 "images-images/$first_png" > truncated.png
good='{"values": {"Name": "Good Card", "Last Name": "Card"}}'
bad_lines=(
  '{"values": {"Name": "A B", "Name.Rectangle": "1 2 3"}}'
  '{"values": {"Name": "A B", "Name.Rectangle": "a b c d"}}'
  '{"values": {"Name": "A B", "Name.Rectangle": "0 0 2147483647 2147483647"}}'
  '{"values": {"Name": "A B", "Name.Rectangle": "-5 0 2147483647 1"}}'
  '{"values": {"Name": "A B", "Name.Rectangle": "1 2 3 99999999999"}}'
  '{"values": {"Title": "T", "Title.Confidence Levels": "xx yy zz"}}'
  '{"values": {"Title": "T", "Title.Confidence Levels": "1 2 3"}}'
  '{"values": {"Title": "T", "Title.Confidence Levels": "1 1e400"}}'
  '{"values": {"Title": "T", "Title.Suspect Info": "1"}}'
  '{"values": {"Title": "T", "Title.Suspect Info": "2 0"}}'
  '{"values": {"Name": "Ann Lee", "Last Name": "Leigh"}}'
  '{"values": {"Phone 1": "1", "Phone 1.Rectangle": "1 2"}}'
  '{"front_image": "/dev/zero"}'
  '{"front_image": "pipe.png"}'
  '{"front_image": "."}'
  '{"front_image": "/"}'
  '{"front_image": "folder.png"}'
  '{"front_image": "zero-link.png"}'
  '{"front_image": "huge.png"}'
  '{"front_image": "two-bytes.bmp"}'
  '{"front_image": "garbage.png"}'
  '{"back_image": "truncated.png"}'
  '{"front_image": "data:image/png;base64,iVBORw0KGgo="}'
  '{"front_image": "data:image/bmp;base64,Qk0="}'
  '{"front_image": "/dev/stdin"}'
  '{"id": 2147483648}'
  '{"id": -1}'
  '{"values": {"Name": "x", "Name": "y"}}'
  '{"values": {"Shoe Size": "44"}}'
  '{"values": {"Name": "\ud800"}}'
  '{"values": {"Name": "x"}'
  '{"database": {"custom_fields": [{"name": "Name"}]}}'
)
fresh t.db; before=$(md5sum < t.db)
for line in "${bad_lines[@]}"; do
  printf '%s\n%s\n' "$good" "$line" > bad.jsonl
  run import bad.jsonl --db t.db > /dev/null 2> err.txt < /dev/null; code=$?
  check "bad input" "$line (exit $code: $(head -c 150 err.txt))" \
    bash -c "[ $code = 1 ] && grep -q 'line 2' err.txt && [ \"\$(md5sum < t.db)\" = '$before' ] && [ ! -e t.db-wal ]"
done
# whole files that are no .jsonl at all
for file in /dev/zero . /dev/null pipe.png huge.png; do
  [ "$file" = pipe.png ] && { (sleep 1; echo "$good" > pipe.png) & }
  run import "$file" --db t.db > /dev/null 2> err.txt; code=$?
  expect=1; [ "$file" = /dev/null ] && expect=0; [ "$file" = pipe.png ] && expect=0
  check "bad input" "file $file (exit $code: $(head -c 100 err.txt))" \
    bash -c "[ $code = $expect ] && integrity t.db"
  wait
done
fresh t.db

# ---- the command line: paths, numbers, targets --------------------------------------------
arg_cases=(
  "2|import base.jsonl --db ''"
  "2|sample --cards 3 --db ''"
  "2|find --db ''"
  "2|export --db ''"
  "2|apply --db '' --action remove-exact --yes"
  "2|sample --cards 99999999999999999999 --db n.db"
  "2|sample --cards 10000001 --db n.db"
  "2|sample --cards -1 --db n.db"
  "2|sample --cards 1 --seed -1 --db n.db"
  "2|sample --cards 1 --seed 18446744073709551616 --db n.db"
  "2|sample --cards 1.5 --db n.db"
  "1|export --db t.db t.db"
  "1|export --db t.db ./t.db"
  "1|export --db t.db t.db-wal"
  "1|export --db t.db t.db-shm"
  "1|export --db t.db t.db-journal"
  "1|export --db t.db link-to-db"
  "1|export --db t.db hard-link-to-db"
  "1|export --db t.db /dev/full"
  "1|export --db t.db folder.png"
  "1|find --db t.db >/dev/full"
  "1|find --db t.db --json >/dev/full"
  "1|export --db t.db >/dev/full"
  "1|find --db missing.db"
  "1|find --db folder.png"
  "1|find --db base.jsonl"
)
ln -sf t.db link-to-db; ln -f t.db hard-link-to-db
before=$(md5sum < t.db)
for c in "${arg_cases[@]}"; do
  expect=${c%%|*}; args=${c#*|}
  eval "timeout 20 \"$OMBREL\" $args" > /dev/null 2> err.txt; code=$?
  check "command line" "$args (exit $code: $(head -c 100 err.txt))" \
    bash -c "[ $code = $expect ] && [ \"\$(md5sum < t.db)\" = '$before' ] && [ ! -e n.db ] && [ -c /dev/full ] && [ ! -e /dev/full-images ]"
done
# special targets written in place, links followed
(cat pipe.png > piped.jsonl &) ; run export --db images.db pipe.png > /dev/null 2>&1; code=$?; sleep 0.5
check "command line" "export to a FIFO ($code, $(wc -l < piped.jsonl) lines)" \
  bash -c "[ $code = 0 ] && [ -p pipe.png ] && [ \$(wc -l < piped.jsonl) = 201 ] && [ ! -e pipe-images ]"
echo old > real.jsonl; ln -sf real.jsonl alias.jsonl
run export --db images.db alias.jsonl > /dev/null 2>&1; code=$?
check "command line" "export through a symbolic link ($code)" \
  bash -c "[ $code = 0 ] && [ -L alias.jsonl ] && [ \$(wc -l < real.jsonl) = 201 ]"

# ---- read-only and damaged databases ------------------------------------------------------
if [ "$(id -u)" = 0 ] && command -v setpriv > /dev/null; then
  as_nobody="setpriv --reuid=65534 --regid=65534 --clear-groups"
  mkdir -p ro && fresh ro/a.db && chmod 444 ro/a.db && chmod 555 ro
  cp "$OMBREL" ./ombrel-copy && chmod 755 ./ombrel-copy
  chmod 777 . 
  for args in "find --db ro/a.db --json" "export --db ro/a.db" "find --db ro/a.db"; do
    $as_nobody ./ombrel-copy $args > out.txt 2> err.txt; code=$?
    check "read-only" "$args ($code: $(head -c 100 err.txt))" bash -c "[ $code = 0 ] && [ \$(ls -A ro | wc -l) = 1 ]"
  done
  $as_nobody ./ombrel-copy apply --db ro/a.db --action remove-exact --yes > /dev/null 2> err.txt; code=$?
  check "read-only" "apply refused ($code)" bash -c "[ $code = 1 ] && grep -q 'cannot be written' err.txt"
  chmod 755 ro; chmod 644 ro/a.db
fi
fresh dmg.db
python3 -c "
import os
f = open('dmg.db', 'r+b'); size = os.path.getsize('dmg.db'); f.seek(size // 2 // 4096 * 4096); f.write(b'\x5a' * 4096)"
before=$(md5sum < dmg.db)
for args in "apply --db dmg.db --action remove-exact --yes" "apply --db dmg.db --action merge-compatible --yes" \
            "import base.jsonl --db dmg.db" "sample --cards 5 --no-images --db dmg.db"; do
  run $args > /dev/null 2> err.txt; code=$?
  check "damaged" "$args ($code: $(head -c 100 err.txt))" bash -c "[ $code = 1 ] && [ \"\$(md5sum < dmg.db)\" = '$before' ]"
done

# ---- summary ----------------------------------------------------------------------------------
echo
for class in "${!tried_in[@]}"; do
  exits=""
  [ -n "${exits_in[$class]:-}" ] && exits="  (exit codes:$(tr ' ' '\n' <<< "${exits_in[$class]}" | sort | uniq -c | awk 'NF == 2 { printf " %s x%s", $2, $1 }'))"
  printf '%-22s %3d tried, %3d passed%s\n' "$class" "${tried_in[$class]}" "${passed_in[$class]}" "$exits"
done | sort
echo "total: $tried tried, $passed passed"
[ "$tried" = "$passed" ]
