#!/usr/bin/env python3
"""Writes a short recording (string.wav: plucked strings, after Karplus and Strong, 1983) and the impulse response of a
hall (hall.wav). Integer arithmetic decides every sample, so each run writes the same files.

    make_recording.py [FOLDER]
    make_recording.py --picture PICTURE.svg RECORDING.wav RESPONSE.wav RESULT.wav    draws the three
"""

import pathlib
import struct
import sys
import wave

RATE = 8000


class Noise:
    """Pseudo-random integers from -2^15 to 2^15 - 1."""

    def __init__(self, seed):
        self.state = seed

    def next(self):
        self.state = (self.state * 6364136223846793005 + 1442695040888963407) % 2**64
        return (self.state >> 48) - 2**15


def pluck(samples, start, period, noise):
    """A string of so many samples a period: noise that goes round, the mean of neighbours at each turn."""
    string = [noise.next() // 4 for _ in range(period)]
    for i in range(start, len(samples)):
        at = (i - start) % period
        samples[i] += string[at]
        string[at] = (string[at] + string[(at + 1) % period]) * 499 // 1000


def recording():
    samples, noise = [0] * (2 * RATE), Noise(1)
    for start, period in ((0, 36), (2000, 32), (4000, 29), (6000, 24), (9000, 48), (9000, 36)):
        pluck(samples, start, period, noise)
    return samples


def hall():
    """The sound itself, three early reflections, and noise that loses a 1024th with each sample."""
    samples, noise, level = [0] * (6 * RATE // 10), Noise(2), 1200 << 16
    for i in range(300, len(samples)):
        samples[i] = noise.next() * level >> 31
        level -= level >> 10
    for at, size in ((0, 16000), (137, 7000), (211, -5200), (389, 3900)):
        samples[at] = size
    return samples


def write(path, samples):
    with wave.open(str(path), "wb") as out:
        out.setparams((1, 2, RATE, 0, "NONE", ""))
        out.writeframes(b"".join(struct.pack("<h", max(-2**15, min(2**15 - 1, s))) for s in samples))


def read(path):
    with wave.open(path, "rb") as file:
        count = file.getnframes()
        return struct.unpack(f"<{count}h", file.readframes(count))


def picture(path, recordings):
    """The least and the largest sample of every hundredth of a second, one band a recording."""
    longest, step = max(len(samples) for _, samples in recordings), RATE // 100
    out = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d 300" font-family="sans-serif" font-size="12">'
           % (longest // step * 2 + 20),
           '<rect width="100%" height="100%" fill="white"/>']
    for band, (name, samples) in enumerate(recordings):
        middle, most = 60 + 95 * band, max(abs(s) for s in samples)
        upper, lower = [], []
        for i in range(0, len(samples), step):
            piece = samples[i : i + step]
            upper.append("%d,%d" % (10 + 2 * (i // step), middle - 38 * max(piece) // most))
            lower.append("%d,%d" % (10 + 2 * (i // step), middle - 38 * min(piece) // most))
        out.append('<polygon fill="steelblue" points="%s"/>' % " ".join(upper + lower[::-1]))
        out.append('<text x="10" y="%d">%s, %.1f seconds</text>' % (middle - 44, name, len(samples) / RATE))
    pathlib.Path(path).write_text("\n".join(out) + "\n</svg>\n")


if __name__ == "__main__":
    if sys.argv[1:2] == ["--picture"]:
        target, *files = sys.argv[2:]
        picture(target, [(pathlib.Path(file).name, read(file)) for file in files])
    else:
        folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).parent
        write(folder / "string.wav", recording())
        write(folder / "hall.wav", hall())
