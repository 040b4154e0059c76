#!/bin/bash
# make_clip.sh [OUT.mp4] - makes the sample clip: ten seconds of plucked chords, and their waveform
# over slowly turning colours. All of it is computed here; one release of ffmpeg always gives the
# same bytes.
set -euo pipefail
out=$(realpath -m "${1:-$(dirname "$0")/concert.mp4}")

# The two channels as expressions of t, in seconds, parted by "|".
music() {
    awk '
    # A plucked string: four partials, the higher the sooner gone, after an attack of a few ms.
    # place: -1 is left, 1 is right.
    function note(start, frequency, strength, place,    side, gain, t, k, sum) {
        t = "(t-" start ")"
        for (k = 1; k <= 4; k++)
            sum = sum sprintf("+%.3f*exp(-%.2f*%s)*sin(%.3f*%s)", 1 / (k * k), 1.1 + 0.9 * k, t,
                              6.2831853 * k * frequency, t)
        for (side = -1; side <= 1; side += 2) {
            gain = 0.16 * strength * (1 + side * place * 0.6)
            channel[side] = channel[side] sprintf("+if(gte(t,%s),%.4f*(1-exp(-250*%s))*(%s))",
                                                  start, gain, t, sum)
        }
    }
    # The bass, then the notes up and down a quarter of a second apart.
    function chord(start, bass, notes,    n, order, i) {
        split(notes, n, " ")
        split("1 2 3 4 3 2 3 4", order, " ")
        note(start, bass, 0.9, 0)
        for (i = 1; i <= 8; i++)
            note(start + (i - 1) / 4, n[order[i]], 0.55, (order[i] - 2.5) / 2)
    }
    BEGIN {
        chord(0, 130.81, "261.63 329.63 392.00 523.25")  # C
        chord(2, 110.00, "220.00 261.63 329.63 440.00")  # A minor
        chord(4, 87.31, "174.61 220.00 261.63 349.23")   # F
        chord(6, 98.00, "196.00 246.94 293.66 392.00")   # G
        # The last C is struck at once, a little spread, and left to ring.
        split("65.41 130.81 196.00 261.63 329.63 523.25", last, " ")
        for (i = 1; i <= 6; i++) note(8 + i * 0.03, last[i], 0.6, (i - 3.5) / 4)
        print "0" channel[-1] "|0" channel[1]
    }'
}

sound="aevalsrc='$(music)':s=48000:d=10,afade=t=out:st=9.2:d=0.8"
colours="gradients=s=640x360:r=25:d=10:speed=0.006:seed=7:n=4"
colours+=":c0=0x1b2a41:c1=0x324a5f:c2=0x7a4419:c3=0x0c1821"
wave="showwaves=s=640x240:mode=cline:rate=25:colors=0xe8c77b|0xd97b4f:draw=full"

# A sync sample each half second, so that a cut finds one nearby.
ffmpeg -hide_banner -loglevel error -y -nostdin -filter_complex "
    $sound,asplit[sound][seen];
    [seen]$wave,format=rgba,colorchannelmixer=aa=0.8[wave];
    $colours[back];
    [back][wave]overlay=0:60:shortest=1,vignette=PI/5,
        fade=t=in:d=0.4,fade=t=out:st=9.4:d=0.6,format=yuv420p[picture]" \
    -map '[picture]' -map '[sound]' -t 10 -threads 1 \
    -c:v libx264 -preset slow -crf 26 -profile:v main -bf 0 -g 12 -keyint_min 12 -sc_threshold 0 \
    -c:a aac -b:a 192k \
    -map_metadata -1 -fflags +bitexact -flags:v +bitexact -flags:a +bitexact -movflags +faststart \
    "$out"
