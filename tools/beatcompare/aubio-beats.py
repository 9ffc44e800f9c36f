"""Prints the beats aubio's tempo tracker finds in a sound file, one time in seconds a line,
with the given onset detection function (default, hfc, energy, complex, specflux, ...).

   /usr/bin/python3 aubio-beats.py METHOD FILE

This is aubiotrack's loop (1024-sample window, 512-sample hop, no threshold or silence
setting). aubiotrack itself cannot do it: in aubio 0.4.9 it ignores -O and always builds its
tracker with the method "default". With "default" the output equals aubiotrack's.
"""

import sys

import aubio

method, path = sys.argv[1:3]
hop = 512
source = aubio.source(path, 0, hop)
tempo = aubio.tempo(method, 1024, hop, source.samplerate)
while True:
    samples, read = source()
    if tempo(samples)[0]:
        print("%f" % tempo.get_last_s())
    if read < hop:
        break
