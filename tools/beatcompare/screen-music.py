"""Screens candidate recordings for the real-music set (real-music.json) with bpm-tools, aubio
and sox only, before anything of ours runs on them, and prints one manifest line for each file
that passes, held out.

   /usr/bin/python3 screen-music.py --package PACKAGE [--work DIR] [--prefix NAME] FILE...

A file passes when it is 45 s or longer, bpm-tools on the whole file and aubio's beat rate
(aubiotrack's median beat interval) agree within 2 %, and bpm-tools on 30 s windows every 15 s
reads that tempo, its half or its double, in at least 75 % of them. An LMMS song or a MIDI file
also carries its own tempo: the tools must read it (or its half or double), and it is the
reference; a MIDI file passes only with one tempo throughout. A Doom WAD's music lump is named
"FILE.wad:NAME" and screened as a MIDI file.
'has_break': the low band (sox, under 150 Hz, 1 s windows) stays 12 dB under its 90th
percentile for two windows or more after 8 s. 'grid': an LMMS song or a MIDI file starts on a
beat (its first bar line is at 0 s); its beats are taken as known when its onsets, folded at
the reference tempo, peak within 16 ms of 0 in the low band or the full band (LMMS renders
differ from run to run, so a song whose off-beat is nearly as strong can land either side).
Other files get 'grid' false: a loop of whole bars needs a listen first.

Every file is decoded as real-music.py decodes it (modules, Opus files, LMMS songs and MIDI
files rendered).
"""

import argparse
import importlib.util
import io
import json
import os
import re
import sys
import zlib

import mido
import numpy

HERE = os.path.dirname(os.path.abspath(__file__))
_spec = importlib.util.spec_from_file_location("real_music", os.path.join(HERE, "real-music.py"))
rm = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(rm)

MIN_SECONDS = 45
AGREE = 0.02
WINDOW_S, WINDOW_STEP_S, WINDOWS_NEEDED = 30, 15, 0.75
FOLD_HOP = 240  # 5 ms at 48 kHz
FOLD_BINS = 100
FOLD_WITHIN_MS = 16


def lmms_tempo(path):
    """The bpm of an LMMS song (.mmpz: Qt's qCompress, a 4-byte length before zlib data)."""
    if not path.lower().endswith(rm.PROJECT_EXTENSIONS):
        return None
    data = open(path, "rb").read()
    if path.lower().endswith(".mmpz"):
        data = zlib.decompress(data[4:])
    found = re.search(rb'<head[^>]*\sbpm="([\d.]+)"', data)
    return float(found.group(1)) if found else None


def midi_tempo(path):
    """A MIDI file's one tempo in bpm (120 when it sets none); 0 when it changes tempo."""
    song = (mido.MidiFile(file=io.BytesIO(rm.wad_lump(path))) if rm.WAD_LUMP in path
            else mido.MidiFile(path))
    tempos = {msg.tempo for track in song.tracks for msg in track
              if msg.type == "set_tempo"}
    if len(tempos) > 1:
        return 0.0
    return mido.tempo2bpm(tempos.pop() if tempos else 500000)


def written_tempo(path):
    if rm.WAD_LUMP in path or path.lower().endswith(rm.MIDI_EXTENSIONS):
        return midi_tempo(path)
    return lmms_tempo(path)


def aubio_rate(wav):
    beats = rm.aubio_beats(wav)
    return 60 / float(numpy.median(numpy.diff(beats))) if len(beats) > 2 else 0.0


def window_share(wav, length, tempo, work):
    starts = numpy.arange(0, length - WINDOW_S + 1e-9, WINDOW_STEP_S)
    window = os.path.join(work, "window.wav")
    held = 0
    for start in starts:
        rm.run(["sox", "-q", wav, window, "trim", str(start), str(WINDOW_S)])
        held += rm.same_pulse(rm.bpm_tools(window), tempo)
    os.remove(window)
    return held / len(starts) if len(starts) else 0.0


def has_break(wav):
    power = rm.samples(wav, *rm.LOW_BAND) ** 2
    n = len(power) // rm.SAMPLE_RATE
    if n == 0:
        return False
    seconds = 10 * numpy.log10(power[:n * rm.SAMPLE_RATE].reshape(n, -1).mean(axis=1) + 1e-12)
    out_level = numpy.percentile(seconds, 90) - rm.BASS_OUT_DB
    run = 0
    for level in seconds[int(rm.SETTLE_S):]:
        run = run + 1 if level < out_level else 0
        if run >= 2:
            return True
    return False


def fold_offsets_ms(wav, tempo):
    """Where the onsets (energy rises in 5 ms hops), folded at the beat, peak: low band, full."""
    period = 60 / tempo
    offsets = []
    for band in (rm.LOW_BAND, ()):
        x = rm.samples(wav, *band)
        n = len(x) // FOLD_HOP
        energy = numpy.log10((x[:n * FOLD_HOP] ** 2).reshape(n, -1).mean(axis=1) + 1e-10)
        rise = numpy.maximum(numpy.diff(energy, prepend=energy[0]), 0)
        phase = (numpy.arange(n) * FOLD_HOP / rm.SAMPLE_RATE % period) / period
        bins = numpy.bincount((phase * FOLD_BINS).astype(int) % FOLD_BINS, weights=rise,
                              minlength=FOLD_BINS)
        offset = (int(numpy.argmax(bins)) + 0.5) / FOLD_BINS * period
        offsets.append(round(1000 * (offset - period if offset > period / 2 else offset)))
    return offsets


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--package", required=True)
    parser.add_argument("--prefix", help="name prefix (default: the package's, less -data)")
    parser.add_argument("--work", default="/tmp/kelvo-screen-music")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()
    os.makedirs(args.work, exist_ok=True)
    prefix = args.prefix or re.sub(r"-(data|music|common)$", "", args.package)
    passed = []
    for path in args.files:
        base = (path.split(rm.WAD_LUMP)[1] if rm.WAD_LUMP in path
                else os.path.splitext(os.path.basename(path))[0])
        stem = re.sub(r"[^a-z0-9]+", "-", base.lower())
        path = os.path.abspath(path)
        track = {"name": prefix + "-" + stem.strip("-"), "path": path}
        wav = rm.decode(track, args.work, 0, 0, False)
        length = rm.duration(wav)
        theirs, aubio = rm.bpm_tools(wav), aubio_rate(wav)
        written = written_tempo(path)
        reasons = []
        if written == 0.0:
            reasons.append("the tempo changes")
        if length < MIN_SECONDS:
            reasons.append("%.0f s long" % length)
        if not (theirs > 0 and abs(aubio / theirs - 1) <= AGREE):
            reasons.append("aubio %.2f against bpm-tools %.2f" % (aubio, theirs))
        reference = theirs
        if written and not reasons:
            level = min((0.5, 1, 2), key=lambda k: abs(theirs / (written * k) - 1))
            reference = written * level
            if abs(theirs / reference - 1) > AGREE:
                reasons.append("the song's own %g is not read" % written)
        share = window_share(wav, length, theirs, args.work) if not reasons else 0.0
        if not reasons and share < WINDOWS_NEEDED:
            reasons.append("windows %.2f" % share)
        print("%-48s %5.0f s  bpm-tools %7.2f  aubio %7.2f%s  %s" % (
            track["name"], length, theirs, aubio, "  song %g" % written if written else "",
            "; ".join(reasons) or "passes"), file=sys.stderr)
        if not reasons:
            folds = fold_offsets_ms(wav, reference) if written else None
            if folds:
                print("%-48s onsets fold at %d ms (low band), %d ms (full)" % (
                    track["name"], folds[0], folds[1]), file=sys.stderr)
            passed.append({"name": track["name"], "package": args.package, "path": path,
                           "bpm": round(reference, 3), "held_out": True,
                           "has_break": has_break(wav),
                           "grid": bool(folds) and any(abs(f) <= FOLD_WITHIN_MS for f in folds)})
        os.remove(wav)
    for entry in passed:
        print("    " + json.dumps(entry, ensure_ascii=False) + ",")
    return 0


if __name__ == "__main__":
    sys.exit(main())
