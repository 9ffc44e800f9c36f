"""Prints aubio's running tempo every STEP seconds, "TIME BPM" a line (0 before it has one).

   /usr/bin/python3 aubio-tempo.py FILE STEP

aubiotrack's tracker (method "default", 1024-sample window, 512-sample hop), read as it runs:
the tempo a live tool built on it would show at each moment, to hold against the reference as
the harness's trace is held.
"""

import sys

import aubio

path, step = sys.argv[1], float(sys.argv[2])
hop = 512
source = aubio.source(path, 0, hop)
tempo = aubio.tempo("default", 1024, hop, source.samplerate)
heard = 0
due = step
while True:
    samples, read = source()
    tempo(samples)
    heard += read
    while heard >= due * source.samplerate:
        print("%.2f %.3f" % (due, tempo.get_bpm()))
        due += step
    if read < hop:
        break
