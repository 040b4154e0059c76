#!/usr/bin/env python3
"""Makes tests/data/pictures: what ffmpeg shows of a clip, and when.

    picture_times.py OUT_FOLDER CLIP...

For each clip a .pgm with every picture reduced to 16 by 9 grey pixels, one below the other, and a
.times with the moment, in nanoseconds, at which each comes to the screen.
"""
import pathlib
import re
import subprocess
import sys

WIDTH, HEIGHT = 16, 9


def pictures(clip):
    command = [
        "ffmpeg", "-hide_banner", "-nostdin", "-copyts", "-i", clip, "-map", "0:v:0",
        "-vf", f"showinfo,scale={WIDTH}:{HEIGHT}:flags=area,format=gray",
        "-fps_mode", "passthrough", "-f", "rawvideo", "-",
    ]
    done = subprocess.run(command, capture_output=True, check=True)
    log = done.stderr.decode()
    base = re.search(r"config in time_base: (\d+)/(\d+)", log)
    unit, scale = int(base[1]), int(base[2])
    stamps = [int(m) for m in re.findall(r"\bpts:\s*(-?\d+) ", log)]
    return [s * unit * 10**9 // scale for s in stamps], done.stdout


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(exist_ok=True)
    for clip in sys.argv[2:]:
        times, pixels = pictures(clip)
        assert len(pixels) == len(times) * WIDTH * HEIGHT, clip
        name = folder / pathlib.Path(clip).stem
        head = f"P5 {WIDTH} {HEIGHT * len(times)} 255\n".encode()
        name.with_suffix(".pgm").write_bytes(head + pixels)
        name.with_suffix(".times").write_text("".join(f"{t}\n" for t in times))


main()
