#!/usr/bin/env python3
"""Sound and picture in step, as a player shows them: before a save and after it.

    tools/flash_and_click.py TARN [CUTS [SEED]]

Makes clips with one white picture and one click each second (three picture rates, with and without
B pictures, two sound rates, AAC and PCM), cuts each CUTS times at random points, decodes clip and
result with ffmpeg and compares how far each click lies from its flash. Fails where that changes by
a millisecond or more. Needs ffmpeg with libx264, and python3.
"""

import array
import json
import math
import os
import random
import subprocess
import sys
import tempfile

SECONDS = 12
WIDTH, HEIGHT = 64, 48
LOUD = 6000  # of a click, 16-bit
CLICK = 24  # samples


def run(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout


def make_clip(path, rate, sound_rate, between, codec):
    """A flash with the first picture at or after each second, and a click at that very time."""
    number, base = rate
    pictures = int(SECONDS * number / base)
    sound = array.array("h", [0]) * (2 * sound_rate * SECONDS)
    flashes = {math.ceil(second * number / base) for second in range(1, SECONDS)}
    for flash in flashes:
        start = round(flash * base / number * sound_rate) - CLICK // 2
        for n in range(CLICK):
            level = int(20000 * math.sin(math.pi * (n + 0.5) / CLICK))
            sound[2 * (start + n)] = sound[2 * (start + n) + 1] = level
    with open(path + ".gray", "wb") as raw:
        for n in range(pictures):
            raw.write((b"\xff" if n in flashes else b"\x10") * (WIDTH * HEIGHT))
    with open(path + ".s16", "wb") as raw:
        raw.write(sound.tobytes())
    run("ffmpeg", "-y", "-v", "error", "-f", "rawvideo", "-pix_fmt", "gray", "-s",
        f"{WIDTH}x{HEIGHT}", "-r", f"{number}/{base}", "-i", path + ".gray", "-f", "s16le", "-ar",
        str(sound_rate), "-ac", "2", "-i", path + ".s16", "-c:v", "libx264", "-preset", "veryfast",
        "-g", "30", "-bf", str(between), "-pix_fmt", "yuv420p", "-c:a", codec, "-f",
        "mov" if codec == "pcm_s16be" else "mp4", path)
    os.remove(path + ".gray")
    os.remove(path + ".s16")


def frames(path, stream):
    return json.loads(run("ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                          "stream=sample_rate:frame=pts_time", "-of", "json", path))


def flash_times(path):
    raw = run("ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-fps_mode", "passthrough", "-f",
              "rawvideo", "-pix_fmt", "gray", "-s", f"{WIDTH}x{HEIGHT}", "-")
    size = WIDTH * HEIGHT
    levels = [raw[n * size + size // 2] for n in range(len(raw) // size)]
    times = [float(frame["pts_time"]) for frame in frames(path, "v")["frames"]]
    return [time for time, level in zip(times, levels) if level > 180]


def click_times(path):
    info = frames(path, "a")
    rate = int(info["streams"][0]["sample_rate"])
    first = float(info["frames"][0]["pts_time"])
    sound = array.array("h")
    sound.frombytes(run("ffmpeg", "-v", "error", "-i", path, "-map", "0:a", "-f", "s16le", "-ac",
                        "2", "-"))
    left, times, n = sound[0::2], [], 0
    while n < len(left):
        if abs(left[n]) < LOUD:
            n += 1
            continue
        near = [abs(level) for level in left[n:n + 200]]
        centre = sum(i * level for i, level in enumerate(near)) / sum(near)
        times.append(first + (n + centre) / rate)
        n += rate // 5
    return times


def distances(path):
    """From each flash to its click, in milliseconds."""
    clicks = click_times(path)
    near = [(min(clicks, key=lambda c: abs(c - flash)) - flash) * 1000
            for flash in flash_times(path) if clicks]
    return [distance for distance in near if abs(distance) < 300]


def check(tarn, clip, name, cuts):
    base = distances(clip)
    base = sum(base) / len(base)
    worst = 0.0
    for options in ([], ["--exact"]):
        for _ in range(cuts):
            start = random.randint(0, 7000)
            end = random.randint(start + 1500, SECONDS * 1000)
            out = clip + ".out.mp4"
            run(tarn, "export", clip, out, "--in", str(start), "--out", str(end), *options)
            said = subprocess.run(["ffmpeg", "-v", "error", "-i", out, "-f", "null", "-"],
                                  capture_output=True, check=False).stderr.decode()
            found = distances(out)
            os.remove(out)
            off = max((abs(distance - base) for distance in found), default=math.inf)
            worst = max(worst, off)
            if off >= 1 or said:
                print(f"{name} {options} {start} to {end}: off by {off:.2f} ms {said.strip()}")
    print(f"{name}: within {worst:.3f} ms")
    return worst


def main():
    tarn = os.path.abspath(sys.argv[1])
    cuts = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    random.seed(int(sys.argv[3]) if len(sys.argv) > 3 else 1)
    worst = 0.0
    with tempfile.TemporaryDirectory() as folder:
        for rate in ((25, 1), (30000, 1001), (60000, 1001)):
            for sound_rate in (48000, 44100):
                for between in (0, 2):
                    for codec in ("aac", "pcm_s16be"):
                        clip = os.path.join(folder, "clip.mp4")
                        make_clip(clip, rate, sound_rate, between, codec)
                        name = f"{rate[0] / rate[1]:.2f} {sound_rate} B{between} {codec}"
                        worst = max(worst, check(tarn, clip, name, cuts))
    print(f"worst: {worst:.3f} ms")
    return 0 if worst < 1 else 1


if __name__ == "__main__":
    sys.exit(main())
