#!/bin/bash
# run.sh SECONDS [NAME...] - runs the built fuzz targets, all of them or those named, each for that
# long. What they learn is kept in build/fuzz/corpus and used next time; an input that breaks one
# goes to build/fuzz/crashes. Fails when any target did.
set -euo pipefail
cd "$(dirname "$0")/.."

limit=${1:?usage: fuzz/run.sh SECONDS [NAME...]}
shift
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for program in build/fuzz/fuzz/*_fuzz; do
        [ -x "$program" ] && names+=("$(basename "$program" _fuzz)")
    done
fi
if [ ${#names[@]} -eq 0 ]; then
    echo "No fuzz targets in build/fuzz/fuzz."
    exit 0
fi

[ -d /dev/shm ] && export TMPDIR=/dev/shm  # outputs are synced: in memory that costs nothing
mkdir -p build/fuzz/crashes build/fuzz/logs
failed=()
for name in "${names[@]}"; do
    corpus=build/fuzz/corpus/$name
    mkdir -p "$corpus"
    folders=("$corpus")
    for seeds in "fuzz/seeds/$name" "build/fuzz/seeds/$name"; do
        [ -d "$seeds" ] && folders+=("$seeds")
    done
    log=build/fuzz/logs/$name.log
    printf '%-24s ' "$name"
    # An input that takes more than a second or asks for 256 MB at once is a finding. The process may
    # hold more: the sanitizer keeps what was freed, and shadows of it all.
    if "build/fuzz/fuzz/${name}_fuzz" -max_total_time="$limit" -timeout=1 -malloc_limit_mb=256 \
        -rss_limit_mb=1024 \
        -artifact_prefix="build/fuzz/crashes/$name-" -print_final_stats=1 \
        "${folders[@]}" >"$log" 2>&1; then
        echo "ok, $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") inputs"
    else
        echo "FAILED"
        failed+=("$name")
        grep -E 'ERROR|SUMMARY|Test unit written' "$log" || tail -n 20 "$log"
    fi
done
if [ ${#failed[@]} -gt 0 ]; then
    echo "Failed: ${failed[*]} (logs in build/fuzz/logs, inputs in build/fuzz/crashes)" >&2
    exit 1
fi
