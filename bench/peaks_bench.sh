#!/bin/bash
# peaks_bench.sh - `tarn peaks` on AAC clips of one minute, ten minutes and an hour, beside ffmpeg
# decoding the same sound. Prints the fastest of five alternating runs and the largest memory.
# Needs ffmpeg and GNU time, and a release build.
set -euo pipefail
cd "$(dirname "$0")/.."

tarn=build/release/src/cli/tarn
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Tones that swell under noise, at the camera's rate and bit rate.
ffmpeg -v error -f lavfi -i "aevalsrc='0.3*sin(2*PI*220*t)*(1+sin(t))/2+0.2*(random(0)-0.5)|\
0.3*sin(2*PI*330*t)+0.2*(random(1)-0.5)':s=48000:d=600" -c:a aac -b:a 128k "$folder/10.mp4"
ffmpeg -v error -i "$folder/10.mp4" -t 60 -c copy "$folder/1.mp4"
ffmpeg -v error -stream_loop 5 -i "$folder/10.mp4" -c copy "$folder/60.mp4"

# best NAME COMMAND... - keeps the shortest time and the largest memory seen under that name.
declare -A seconds kilobytes
best() {
    local name=$1 took memory
    shift
    command time -o "$folder/figures" -f '%e %M' "$@" >/dev/null
    read -r took memory <"$folder/figures"
    seconds[$name]=$(printf '%s\n' "${seconds[$name]:-999}" "$took" | sort -n | head -n 1)
    kilobytes[$name]=$(printf '%s\n' "${kilobytes[$name]:-0}" "$memory" | sort -n | tail -n 1)
}

printf '%-8s %10s %10s %7s %12s %12s\n' minutes tarn ffmpeg ratio 'tarn MiB' 'ffmpeg MiB'
for minutes in 1 10 60; do
    for _ in 1 2 3 4 5; do
        best tarn "$tarn" peaks "$folder/$minutes.mp4" --columns 1000
        best ffmpeg ffmpeg -v error -nostdin -i "$folder/$minutes.mp4" -vn -f null -
    done
    awk -v minutes="$minutes" -v ours="${seconds[tarn]}" -v theirs="${seconds[ffmpeg]}" \
        -v our_kb="${kilobytes[tarn]}" -v their_kb="${kilobytes[ffmpeg]}" 'BEGIN {
            printf "%-8d %8.2f s %8.2f s %7.2f %12.1f %12.1f\n",
                minutes, ours, theirs, ours / theirs, our_kb / 1024, their_kb / 1024 }'
    unset 'seconds[tarn]' 'seconds[ffmpeg]' 'kilobytes[tarn]' 'kilobytes[ffmpeg]'
done
