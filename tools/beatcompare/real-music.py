"""Scores the development harness's beat tracker beside aubio's on real recordings (the game
music listed in real-music.json), with mir_eval, and prints Markdown tables: tuning and
held-out files apart.

   /usr/bin/python3 real-music.py --binary kelvo-beat-compare [--work DIR] [--excerpt SECONDS]
                                  [--start SECONDS] [--only NAME[,NAME...]] [--tuning] [--check]
                                  [--random-dither]

Beats are judged after the first 8 seconds: F-measure (±70 ms), CMLt and AMLt. The tempo is
held when the harness reads the reference tempo, its half or its double within 2 %; the longest
stretch it reads another ratio is the "longest jump". bpm-tools and `aubio tempo` give their
tempo for the whole file; aubio's tracker is also read as it runs (aubio-tempo.py beside this
file) and held the same way, so the goal is judged against a tool that works live too.
Drops: where the harness's drop detector fires, each judged against where the bass really
comes back (sox's band under 150 Hz in 1 s windows, back within 12 dB of its 90th percentile
for two windows after over a second under it, from 8 s on; the moment to a quarter second):
"at return" from a second before one to 1.5 s after, "late" up to 3 s after, "false" anywhere
else. A return after over 7.5 s out (after the detector's first 30 s) that
gets no drop is "missed". Files whose beats are not known ("grid": false) are scored on the
tempo only: their beat scores show as "—" and stay out of the means.

With --check the exit status is 1 when the harness's mean AMLt falls below aubio's, and 77 when
none of the music is installed (so a test skips rather than fails), except under CI=true.

--tuning leaves the held-out files out (while a change is being tuned).

The decode's dither is the same on every run; --random-dither draws it afresh, to see how much
the figures move with noise at the level of the last bit.

Tracker modules (mod, xm, s3m, it) are rendered by openmpt123, LMMS songs (mmp, mmpz) by LMMS,
MIDI files (and a Doom WAD's music lumps, named "FILE.wad:NAME") by FluidSynth with the TimGM6mb
General MIDI sound font, and Opus files decoded by opusdec first, all to float samples with no
dither, played once (LMMS's renders differ a little from run to run: its oscillators start at
random phases).

--start runs every file from that point on (the loops start on a beat, so the reference grid
moves with it): the tracker's start-up meets other music than the files' openings.
"""

import argparse
import collections
import json
import os
import statistics
import struct
import subprocess
import sys

import mir_eval
import numpy

HERE = os.path.dirname(os.path.abspath(__file__))
SETTLE_S = 8.0
TEMPO_TOLERANCE = 0.02
TEMPO_STEP_S = 0.25  # the harness trace's tempo interval
HELD_GOAL = 0.95  # of the readings past SETTLE_S at the reference tempo, its half or double
LONGEST_JUMP_S = 1.0
SAMPLE_RATE = 48000
BASS_OUT_DB = 12  # under the low band's 90th percentile
RETURN_EARLY_S = 1.0  # the measure's window
RETURN_AFTER_S = 1.5  # the detector confirms the bass for a moment after its first kick
RETURN_LATE_S = 3.0
LONG_BREAK_S = 7.5  # where the detector arms
DETECTOR_WARMUP_S = 30


def run(command, stdin=None, env=None):
    return subprocess.run(command, stdin=stdin, capture_output=True, text=True, check=True,
                          env=env).stdout


# Formats sox cannot read, rendered first to a float WAV with no dither: the same samples every
# run, but for LMMS, whose oscillators start at random phases
MODULE_EXTENSIONS = (".mod", ".xm", ".s3m", ".it")
PROJECT_EXTENSIONS = (".mmp", ".mmpz")  # LMMS songs
MIDI_EXTENSIONS = (".mid", ".midi")
MIDI_SOUNDFONT = "/usr/share/sounds/sf2/TimGM6mb.sf2"
WAD_LUMP = ".wad:"  # "FILE.wad:NAME": a music lump (a MIDI file) inside a Doom WAD


def installed_file(path):
    """The file on disk behind a path: the WAD itself for one of its lumps."""
    return path.split(WAD_LUMP)[0] + ".wad" if WAD_LUMP in path else path


def wad_lump(path):
    """The bytes of the lump a "FILE.wad:NAME" path names (a WAD's directory: offset, size, name)."""
    name = path.split(WAD_LUMP)[1].encode()
    with open(installed_file(path), "rb") as f:
        data = f.read()
    count, directory = struct.unpack_from("<ii", data, 4)
    for entry in range(count):
        offset, size, lump = struct.unpack_from("<ii8s", data, directory + 16 * entry)
        if lump.rstrip(b"\0") == name:
            return data[offset:offset + size]
    raise ValueError("%s: no such lump" % path)


def source_for_sox(path, work):
    if WAD_LUMP in path:
        extracted = os.path.join(work, os.path.basename(path).replace(":", "-") + ".mid")
        with open(extracted, "wb") as f:
            f.write(wad_lump(path))
        try:
            return source_for_sox(extracted, work)
        finally:
            os.remove(extracted)
    lower = path.lower()
    if not lower.endswith(MODULE_EXTENSIONS + PROJECT_EXTENSIONS + MIDI_EXTENSIONS + (".opus",)):
        return path
    rendered = os.path.join(work, os.path.basename(path) + ".render.wav")
    if lower.endswith(".opus"):
        run(["opusdec", "--quiet", "--float", "--rate", str(SAMPLE_RATE), path, rendered])
    elif lower.endswith(PROJECT_EXTENSIONS):
        # LMMS refuses root unless told; it needs no display to render
        run(["lmms", "--allowroot", "render", path, "--float", "--samplerate", str(SAMPLE_RATE),
             "--format", "wav", "--output", rendered],
            stdin=subprocess.DEVNULL, env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    elif lower.endswith(MIDI_EXTENSIONS):
        run(["fluidsynth", "-n", "-i", "-q", "-F", rendered, "-T", "wav", "-O", "float",
             "-r", str(SAMPLE_RATE), MIDI_SOUNDFONT, path], stdin=subprocess.DEVNULL)
    else:
        run(["openmpt123", "--batch", "--quiet", "--samplerate", str(SAMPLE_RATE), "--channels", "2",
             "--float", "--dither", "0", "--repeat", "0", "--force", "-o", rendered, "--", path],
            stdin=subprocess.DEVNULL)
    return rendered


def decode(track, work, excerpt, start, random_dither):
    wav = os.path.join(work, track["name"] + ("@%g" % start if start else "") + ".wav")
    source = source_for_sox(track["path"], work)
    # -R: the same dither every run, so a rerun gives the same figures
    dither = [] if random_dither else ["-R"]
    command = ["sox"] + dither + ["-q", "-G", source,
                                  "-r", str(SAMPLE_RATE), "-c", "1", "-b", "16", wav]
    if excerpt or start:
        command += ["trim", str(start)] + ([str(excerpt)] if excerpt else [])
    try:
        run(command)
    finally:
        if source != track["path"]:
            os.remove(source)
    return wav


def harness(binary, wav):
    beats, tempo, drops = [], [], []
    for line in run([binary, "--trace", wav]).splitlines():
        fields = line.split()
        if fields[0] == "beat":
            beats.append(float(fields[1]))
        elif fields[0] == "bpm":
            tempo.append((float(fields[1]), float(fields[2])))
        elif fields[0] == "drop":
            drops.append(float(fields[1]))
    return numpy.array(beats), tempo, drops


def aubio_beats(wav):
    return numpy.array([float(x) for x in run(["aubiotrack", "-i", wav]).split()])


def aubio_running_tempo(wav):
    lines = run(["/usr/bin/python3", os.path.join(HERE, "aubio-tempo.py"), wav,
                 str(TEMPO_STEP_S)]).splitlines()
    return [(float(t), float(v)) for t, v in (line.split() for line in lines)]


def aubio_tempo(wav):
    lines = run(["aubio", "tempo", "-i", wav]).split()
    return float(lines[-2]) if len(lines) >= 2 else 0.0


def bpm_tools(wav):
    raw = subprocess.run(["sox", "-q", wav, "-t", "raw", "-r", "44100", "-e", "float", "-c", "1", "-"],
                         capture_output=True, check=True).stdout
    out = subprocess.run(["bpm", "-m", "90", "-x", "180", "-f", "%.2f"], input=raw,
                         capture_output=True, check=True).stdout
    return float(out.decode().strip() or 0)


def duration(wav):
    return float(run(["soxi", "-D", wav]).strip())


def samples(wav, *effects):
    """The file's mono samples through sox (with effects, such as a filter), as floats."""
    raw = subprocess.run(["sox", "-q", wav, "-t", "raw", "-e", "signed", "-b", "16", "-c", "1", "-",
                          *effects], capture_output=True, check=True).stdout
    return numpy.frombuffer(raw, dtype=numpy.int16).astype(numpy.float64) / 32768.0


LOW_BAND = ("sinc", "-150")  # the bass, as the drop's returns are measured


def bass_returns(wav, start):
    """Where the bass comes back, and for how many seconds after the detector's warm-up it was
    out: the first two 1 s windows within 12 dB of the 90th percentile after two or more under
    it; the moment is the first quarter second within 12 dB from a second before them. The
    windows keep to the music's whole seconds, so every start point sees the same ones."""
    skip = round(-start % 1.0 * SAMPLE_RATE)
    power = samples(wav, *LOW_BAND)[skip:] ** 2

    def levels(width):
        n = len(power) // width
        return 10 * numpy.log10(power[:n * width].reshape(n, width).mean(axis=1) + 1e-12)

    seconds, quarters = levels(SAMPLE_RATE), levels(SAMPLE_RATE // 4)
    if len(seconds) == 0:
        return []
    back = numpy.percentile(seconds, 90) - BASS_OUT_DB
    returns, out_from, out = [], None, 0
    for i in range(int(SETTLE_S), len(seconds)):
        if seconds[i] < back:
            out_from = i if out_from is None else out_from
            out += i >= DETECTOR_WARMUP_S
            continue
        if out_from is None or (i + 1 < len(seconds) and seconds[i + 1] < back):
            continue  # one second of bass inside a break is a note, not the return
        if i - out_from > 1:
            moment = next(q for q in range(4 * (i - 1), 4 * (i + 1)) if quarters[q] >= back) / 4
            returns.append((moment + skip / SAMPLE_RATE, out))
        out_from, out = None, 0
    return returns


def judge_drops(drops, returns):
    """Each drop "at return", "late" or "false"; the long breaks' returns that got none."""
    def near(d, r, after=RETURN_LATE_S):
        return -RETURN_EARLY_S <= d - r <= after
    judged = [(d, "at return" if any(near(d, r, RETURN_AFTER_S) for r, _ in returns) else
               "late" if any(near(d, r) for r, _ in returns) else "false") for d in drops]
    missed = [r for r, out in returns if out > LONG_BREAK_S and not any(near(d, r) for d in drops)]
    return judged, missed


def scores(estimated, reference):
    estimated = estimated[estimated >= SETTLE_S]
    f = mir_eval.beat.f_measure(reference, estimated)
    _, cmlt, _, amlt = mir_eval.beat.continuity(reference, estimated)
    return f, cmlt, amlt


def same_pulse(value, bpm):
    """value is bpm, its half or its double, within 2 %."""
    return any(abs(value - bpm * k) <= TEMPO_TOLERANCE * bpm * k for k in (0.5, 1, 2))


def meets_goal(held, longest):
    return held >= HELD_GOAL and longest <= LONGEST_JUMP_S


def tempo_hold(tempo, bpm):
    """Share of the tempo readings after the settling time at the reference tempo (or its half
    or double) within 2 %, and the longest run of readings that are not, in seconds."""
    settled = [value for t, value in tempo if t >= SETTLE_S]
    if not settled:
        return 0.0, 0.0
    held, longest, run_length = 0, 0, 0
    for value in settled:
        ok = same_pulse(value, bpm)
        held += ok
        run_length = 0 if ok else run_length + 1
        longest = max(longest, run_length)
    return held / len(settled), longest * TEMPO_STEP_S


# One file's figures: ours and aubio's running tempo held, the beat scores (None without
# beats), the drops' verdicts, the returns missed, and the seconds judged.
Totals = collections.namedtuple("Totals", "held longest their_held their_longest ours theirs "
                                          "verdicts missed seconds")


def mean(values):
    return statistics.fmean(values) if values else 0.0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binary", required=True)
    parser.add_argument("--work", default="/tmp/kelvo-beat-compare-real")
    parser.add_argument("--excerpt", type=float, default=0)
    parser.add_argument("--start", type=float, default=0)
    parser.add_argument("--only", default="")
    parser.add_argument("--tuning", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--random-dither", action="store_true")
    args = parser.parse_args()
    os.makedirs(args.work, exist_ok=True)
    with open(os.path.join(HERE, "real-music.json")) as f:
        tracks = json.load(f)["tracks"]
    if args.only:
        wanted = args.only.split(",")
        tracks = [t for t in tracks if t["name"] in wanted]
    if args.tuning:
        tracks = [t for t in tracks if not t["held_out"]]
    missing = [t for t in tracks if not os.path.exists(installed_file(t["path"]))]
    for t in missing:
        print("real-music: %s is not installed (Debian package %s)"
              % (installed_file(t["path"]), t["package"]), file=sys.stderr)
    if missing and os.environ.get("CI") == "true":
        return 1  # CI installs the music (scripts/setup): missing there is a fault
    tracks = [t for t in tracks if t not in missing]
    if not tracks:
        return 77

    header = ("| file | BPM: reference / bpm-tools / aubio tempo / ours (median) "
              "| tempo held / longest jump: ours / aubio running | F: ours / aubio "
              "| CMLt: ours / aubio | AMLt: ours / aubio | drops fired (break?) |\n"
              "|---|---|---|---|---|---|---|")
    rows = {False: [], True: []}
    totals = {False: [], True: []}
    for track in tracks:
        wav = decode(track, args.work, args.excerpt, args.start, args.random_dither)
        bpm = float(track["bpm"])
        length = duration(wav)
        reference = numpy.arange(-args.start % (60.0 / bpm), length, 60.0 / bpm)
        reference = reference[reference >= SETTLE_S]
        ours, tempo, drops = harness(args.binary, wav)
        if track.get("grid", True):
            theirs = aubio_beats(wav)
            our_scores = scores(ours, reference)
            their_scores = scores(theirs, reference)
            beat_cells = "%.3f / %.3f | %.3f / %.3f | %.3f / %.3f" % (
                our_scores[0], their_scores[0], our_scores[1], their_scores[1], our_scores[2],
                their_scores[2])
        else:
            our_scores = their_scores = None
            beat_cells = "— | — | —"
        held, longest = tempo_hold(tempo, bpm)
        their_held, their_longest = tempo_hold(aubio_running_tempo(wav), bpm)
        settled = max(0.0, length - SETTLE_S)
        our_bpm = statistics.median([v for t, v in tempo if t >= SETTLE_S] or [0])
        judged, missed = judge_drops(drops, bass_returns(wav, args.start))
        fired = ", ".join("%.1f s %s" % verdict for verdict in judged)
        fired = (fired or "none") + "".join("; missed %.1f s" % r for r in missed)
        rows[track["held_out"]].append(
            "| %s | %g / %.1f / %.1f / %.1f | %.1f %% / %.2f s; %.1f %% / %.2f s "
            "| %s | %s (%s) |" % (
                track["name"], bpm, bpm_tools(wav), aubio_tempo(wav), our_bpm, 100 * held, longest,
                100 * their_held, their_longest, beat_cells, fired,
                "yes" if track["has_break"] else "no"))
        totals[track["held_out"]].append(Totals(held, longest, their_held, their_longest,
                                                our_scores, their_scores,
                                                [v for _, v in judged], len(missed), settled))
        sys.stdout.flush()

    failed = False
    for held_out in (False, True):
        if not rows[held_out]:
            continue
        t = totals[held_out]
        beats = [x for x in t if x.ours is not None]
        print("\n%s files%s%s:\n" % ("Held-out" if held_out else "Tuning",
                                     " from %g s" % args.start if args.start else "",
                                     " (%.0f s)" % args.excerpt if args.excerpt else ""))
        print(header)
        print("\n".join(rows[held_out]))
        print("| **mean** (%d files, %d with beats) "
              "| %d of %d meet the tempo goal (aubio running: %d) "
              "| %.1f %% / %.2f s (worst); %.1f %% / %.2f s "
              "| %.3f / %.3f | %.3f / %.3f | %.3f / %.3f | %d false, %d late, %d missed |" % (
                  len(t), len(beats), sum(meets_goal(x.held, x.longest) for x in t), len(t),
                  sum(meets_goal(x.their_held, x.their_longest) for x in t),
                  100 * mean([x.held for x in t]), max(x.longest for x in t),
                  100 * mean([x.their_held for x in t]), max(x.their_longest for x in t),
                  mean([x.ours[0] for x in beats]), mean([x.theirs[0] for x in beats]),
                  mean([x.ours[1] for x in beats]), mean([x.theirs[1] for x in beats]),
                  mean([x.ours[2] for x in beats]), mean([x.theirs[2] for x in beats]),
                  sum(x.verdicts.count("false") for x in t),
                  sum(x.verdicts.count("late") for x in t),
                  sum(x.missed for x in t)))
        seconds = sum(x.seconds for x in t) or 1.0
        print("\nAll %.0f s past the first %g of every file: ours at the tempo %.1f %%, "
              "aubio running %.1f %%; files with a stretch over %g s at another: "
              "ours %d, aubio %d." % (
                  seconds, SETTLE_S, 100 * sum(x.held * x.seconds for x in t) / seconds,
                  100 * sum(x.their_held * x.seconds for x in t) / seconds, LONGEST_JUMP_S,
                  sum(x.longest > LONGEST_JUMP_S for x in t),
                  sum(x.their_longest > LONGEST_JUMP_S for x in t)))
        if beats and mean([x.ours[2] for x in beats]) < mean([x.theirs[2] for x in beats]):
            failed = True
    if args.check and failed:
        print("real-music: the harness's AMLt falls below aubio's", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
