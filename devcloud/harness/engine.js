/*
 * Kelvo development lighting engine.
 *
 * Evaluated by the bridge as one classic script (no modules, no build step). It defines the
 * global `BridgeEngine`, which the engine host reads by name:
 *
 *   AdaptiveDecibelWindow    update(bands, dt)          -> bands with automatic gain applied
 *   AdaptiveBandNormalizer   update(bands, clock)       -> low/mid/high/all in 0…1, sustained_low,
 *                                                          low_dominance, onset, low_flux,
 *                                                          low_rise_db, level_db
 *   DropSignalDetector       update(signal, dt)         -> drop level (>= 1 when it fires), isArmed()
 *   BeatTracker              update(bands, dt)          -> beat frame (bpm, beat_count, beat,
 *                                                          beat_confidence, downbeat, extend, get, toJson)
 *   RuntimeDirectorSession   loadShow, applyControl, applyFixtureOptions, setForcedDrop,
 *                            shiftLighting, shiftColorScheme, toInterpretationPayload,
 *                            step(frame, dt) -> { dmx, fixtures, color_palette }, director.getRealized()
 *   buildShowSnapshotSubset(activeShow, controlState)   -> the show subset the bridge caches
 *
 * Lighting modes (MODES below), each dealing a few interpreters (INTERPRETERS) over the groups:
 *   blackout   all dark
 *   static     Static wash, Split wash, Gradient wash
 *   pulse      Beat pulse, Alternating pulse, Ripple pulse
 *   chase      Chase, Reverse chase, Bounce chase, Spaced chase
 *   strobe     Strobe hits, Alternating strobe, Strobe roll (strobe channels burst, dimmers flash)
 *   cycle      Colour cycle, Colour steps, Colour wave
 *   party      a mix of the above and Sparkle
 * shiftLighting re-deals them (and the colours) over the groups; shiftColorScheme steps through
 * the theme's palettes and, where the theme allows it, the rainbow (rules at RAINBOW_PALETTE).
 *
 * Rules kept throughout: deterministic for the same inputs (hashes instead of random numbers,
 * no clock reads), no allocation in the per-hop and per-step paths, and no call ever throws on
 * odd input.
 */
var BridgeEngine = (function () {
    'use strict';

    // ---------------------------------------------------------------- small helpers

    var SILENCE_DB = -120;

    function isObject(v) {
        return v !== null && typeof v === 'object' && !Array.isArray(v);
    }
    function num(v, fallback) {
        return typeof v === 'number' && isFinite(v) ? v : fallback;
    }
    function clamp01(v) {
        return !(v > 0) ? 0 : v > 1 ? 1 : v;
    }
    function clamp(v, lo, hi) {
        return !(v > lo) ? lo : v > hi ? hi : v;
    }
    function str(v) {
        return typeof v === 'string' ? v : '';
    }
    function decibels(v) {
        var x = num(v, SILENCE_DB);
        return x < SILENCE_DB ? SILENCE_DB : x;
    }
    function hopSeconds(dt) {
        // A hop is never longer than half a second; anything else is a stalled clock.
        return clamp(num(dt, 0), 0, 0.5);
    }
    // Coefficient of a one-pole smoother with time constant tau seconds for a step of dt.
    function follow(dt, tau) {
        return tau <= 0 ? 1 : 1 - Math.exp(-dt / tau);
    }

    // Stateless hashes: per-beat choices (which fixtures sparkle) repeat for the same input.
    function hash32(a, b) {
        var h = (a * 0x9e3779b1) ^ (b * 0x85ebca77);
        h = Math.imul(h ^ (h >>> 15), 0x2c1b3c6d);
        h = Math.imul(h ^ (h >>> 12), 0x297a2d39);
        h ^= h >>> 15;
        return (h >>> 0) / 4294967296;
    }
    function hashString(s) {
        var h = 2166136261;
        for (var i = 0; i < s.length; i++) {
            h ^= s.charCodeAt(i);
            h = Math.imul(h, 16777619);
        }
        return h >>> 0;
    }

    // ---------------------------------------------------------------- AdaptiveDecibelWindow

    // Automatic gain: follows the overall level (fast up, slow down) and shifts every band so
    // that the programme sits near TARGET_DB. Silence stays silence.
    var WINDOW_TARGET_DB = -40;
    var WINDOW_ATTACK_S = 0.3;
    var WINDOW_RELEASE_S = 4.0;
    var WINDOW_MAX_GAIN_DB = 60;
    var WINDOW_AUDIBLE_DB = -119;

    function AdaptiveDecibelWindow() {
        this.reference = null;
        this.gain = 0;
        this.out = { low: SILENCE_DB, mid: SILENCE_DB, high: SILENCE_DB, all: SILENCE_DB,
                     low_dominance: 0, onset: 0, gain_db: 0 };
    }
    AdaptiveDecibelWindow.prototype.update = function (bands, dt) {
        var b = isObject(bands) ? bands : {};
        var step = hopSeconds(dt);
        var all = decibels(b.all);
        if (all > WINDOW_AUDIBLE_DB) {
            if (this.reference === null) {
                this.reference = all;
            } else {
                var tau = all > this.reference ? WINDOW_ATTACK_S : WINDOW_RELEASE_S;
                this.reference += (all - this.reference) * follow(step, tau);
            }
            this.gain = clamp(WINDOW_TARGET_DB - this.reference, -WINDOW_MAX_GAIN_DB, WINDOW_MAX_GAIN_DB);
        }
        var o = this.out;
        o.low = this.apply(b.low);
        o.mid = this.apply(b.mid);
        o.high = this.apply(b.high);
        o.all = this.apply(b.all);
        o.low_dominance = clamp01(num(b.low_dominance, 0));
        o.onset = Math.max(0, num(b.onset, 0));
        o.gain_db = this.gain;
        return o;
    };
    AdaptiveDecibelWindow.prototype.apply = function (v) {
        var x = decibels(v);
        if (x <= WINDOW_AUDIBLE_DB) return SILENCE_DB;
        return Math.min(20, x + this.gain);
    };

    // ---------------------------------------------------------------- AdaptiveBandNormalizer

    // Each band is mapped to 0…1 between a floor (quick to fall, slow to rise) and a ceiling
    // (instant rise, slow decay) that both follow the room, so a laptop microphone and a hot
    // mixer feed both use the whole range within a few seconds.
    var NORM_BANDS = ['low', 'mid', 'high', 'all'];
    var NORM_MIN_RANGE_DB = 15;
    var NORM_FLOOR_FALL_S = 0.08;
    var NORM_FLOOR_RISE_DB_PER_S = 3;
    var NORM_CEIL_DECAY_DB_PER_S = 2;
    // Bass presence: a slow low-band level against its own slowly decaying peak.
    var SUSTAIN_TAU_S = 0.35;
    var SUSTAIN_PEAK_DECAY_DB_PER_S = 0.5;
    var SUSTAIN_RANGE_DB = 24;
    var BASS_SILENCE_DB = SILENCE_DB - WINDOW_MAX_GAIN_DB; // below any gain-corrected level
    var BASS_ATTACK_S = 0.03;
    // Where the drop detector counts the bass out (0.3 of the range under the peak).
    var BASS_OUT_DB = 16.8;
    // Once the bass has been out this long, the peak holds until the bass is back within 12 dB
    // of it (where a drop's return counts it back) for a moment: partial bass through a break,
    // 12-17 dB down, must not lower the bar until the break's own notes read as the return.
    var BASS_AWAY_S = 0.5;
    var BASS_BACK_DB = 12;
    var BASS_BACK_HOLD_S = 0.2;
    var DOMINANCE_TAU_S = 0.3;
    var ONSET_MEAN_TAU_S = 3;
    var FLUX_MEAN_TAU_S = 3;
    var KICK_RANGE_DB = 30;

    function AdaptiveBandNormalizer() {
        this.lastClock = null;
        this.floor = [0, 0, 0, 0];
        this.ceil = [0, 0, 0, 0];
        this.primed = [false, false, false, false];
        this.slowLow = SILENCE_DB;
        this.slowLowPeak = SILENCE_DB;
        this.slowBass = BASS_SILENCE_DB;
        this.slowBassPeak = BASS_SILENCE_DB;
        this.bassAway = false;
        this.bassOutSeconds = 0;
        this.bassBackSeconds = 0;
        this.dominance = 0;
        this.onsetMean = 0;
        this.previousLow = SILENCE_DB;
        this.fluxMean = 0;
        this.out = { low: 0, mid: 0, high: 0, all: 0, sustained_low: 0, low_dominance: 0,
                     onset: 0, low_flux: 0, low_rise_db: 0, level_db: SILENCE_DB, drop: 0 };
    }
    AdaptiveBandNormalizer.prototype.update = function (bands, clock) {
        var b = isObject(bands) ? bands : {};
        var now = num(clock, 0);
        var dt = this.lastClock === null ? 0 : hopSeconds(now - this.lastClock);
        this.lastClock = now;
        var o = this.out;
        for (var i = 0; i < 4; i++) {
            o[NORM_BANDS[i]] = this.normalize(i, decibels(b[NORM_BANDS[i]]), dt);
        }

        var low = decibels(b.low);
        this.slowLow += (low - this.slowLow) * follow(dt, SUSTAIN_TAU_S);
        this.slowLowPeak = Math.max(this.slowLow, this.slowLowPeak - SUSTAIN_PEAK_DECAY_DB_PER_S * dt);
        // Whether the bass is out is judged on its level before the automatic gain: the gain
        // follows the whole mix, so when the rest of the band comes in after a quiet intro it
        // turns the bass down by 20-30 dB that the bass itself never lost. Quick to rise, so a
        // returning bass shows within a few hops; it never sinks further than the range under its
        // peak, where the bass is simply out, so a return from silence is as quick.
        var bass = low > WINDOW_AUDIBLE_DB ? low - num(b.gain_db, 0) : BASS_SILENCE_DB;
        bass = Math.max(bass, this.slowBassPeak - SUSTAIN_RANGE_DB);
        var bassTau = bass > this.slowBass ? BASS_ATTACK_S : SUSTAIN_TAU_S;
        this.slowBass += (bass - this.slowBass) * follow(dt, bassTau);
        // The peak holds while the bass is away: a long break must not lower the bar until its
        // own bass notes read as the bass back. A quieter mix with the bass still in lowers it.
        var below = this.slowBassPeak - this.slowBass;
        this.bassOutSeconds = below > BASS_OUT_DB ? this.bassOutSeconds + dt : 0;
        this.bassBackSeconds = below <= BASS_BACK_DB ? this.bassBackSeconds + dt : 0;
        if (this.bassOutSeconds >= BASS_AWAY_S) this.bassAway = true;
        else if (this.bassBackSeconds >= BASS_BACK_HOLD_S) this.bassAway = false;
        var peakDecay = this.bassAway ? 0 : SUSTAIN_PEAK_DECAY_DB_PER_S * dt;
        this.slowBassPeak = Math.max(this.slowBass, this.slowBassPeak - peakDecay);
        o.sustained_low = this.slowBassPeak <= BASS_SILENCE_DB + 1
            ? 0 : clamp01(1 + (this.slowBass - this.slowBassPeak) / SUSTAIN_RANGE_DB);

        this.dominance += (clamp01(num(b.low_dominance, 0)) - this.dominance) * follow(dt, DOMINANCE_TAU_S);
        o.low_dominance = this.dominance;

        // Onset strength relative to its recent mean, and the rectified rise of the low band in
        // dB (the kick drum) relative to its recent mean.
        var onset = Math.max(0, num(b.onset, 0));
        this.onsetMean += (onset - this.onsetMean) * follow(dt, ONSET_MEAN_TAU_S);
        o.onset = this.onsetMean > 1e-9 ? Math.min(onset / this.onsetMean, 50) : 0;
        // Rises far below the recent bass level are leakage (hats, noise), not kicks.
        var kickFloor = this.slowLowPeak - KICK_RANGE_DB;
        var rise = low > WINDOW_AUDIBLE_DB && this.previousLow > WINDOW_AUDIBLE_DB && low > kickFloor
            ? Math.max(0, low - Math.max(this.previousLow, kickFloor)) : 0;
        this.previousLow = low;
        this.fluxMean += (rise - this.fluxMean) * follow(dt, FLUX_MEAN_TAU_S);
        o.low_flux = this.fluxMean > 1e-6 ? Math.min(rise / this.fluxMean, 50) : 0;
        o.low_rise_db = rise;
        o.level_db = decibels(b.all);
        o.drop = 0;
        return o;
    };
    AdaptiveBandNormalizer.prototype.normalize = function (i, x, dt) {
        if (x <= WINDOW_AUDIBLE_DB) return 0;
        if (!this.primed[i]) {
            this.primed[i] = true;
            this.floor[i] = x - NORM_MIN_RANGE_DB;
            this.ceil[i] = x;
        }
        if (x < this.floor[i]) {
            this.floor[i] += (x - this.floor[i]) * follow(dt, NORM_FLOOR_FALL_S);
        } else {
            this.floor[i] = Math.min(x, this.floor[i] + NORM_FLOOR_RISE_DB_PER_S * dt);
        }
        this.ceil[i] = Math.max(x, this.ceil[i] - NORM_CEIL_DECAY_DB_PER_S * dt);
        var range = Math.max(this.ceil[i] - this.floor[i], NORM_MIN_RANGE_DB);
        return clamp01((x - this.floor[i]) / range);
    };

    // ---------------------------------------------------------------- DropSignalDetector

    // A drop arms once the bass has stayed out for about eight seconds and fires when it
    // returns; the first half minute, while the band levels settle, never arms, and only
    // bass-out time after it counts.
    var DROP_WARMUP_S = 30;
    var DROP_ARM_AFTER_S = 7.5;
    var DROP_BASS_OUT_BELOW = 0.3;
    var DROP_BASS_IN_ABOVE = 0.6;
    // The return is a kick with the bass back within 12 dB of its level before the break: a kick
    // inside a break, which the quick band normalizer also reads as loud, is no return.
    var DROP_RETURN_LEVEL = 0.55;
    var DROP_RETURN_SUSTAINED = 0.5;
    var DROP_RETURN_CONFIRM_S = 0.035;
    var DROP_DECAY_S = 4;
    // One bass note in a break is no return: after the kick the bass must stay back for a
    // moment, or a second kick must bring it back again within about a beat (a sparse bass
    // line), before the drop fires. A kick sooner than the hold is the same note flickering
    // across the bar, not a second one.
    var DROP_RETURN_HOLD_S = 0.2;
    var DROP_RETURN_AGAIN_S = 0.8;
    // A returning band lifts the bass's share of the mix while it holds; a lone note in a
    // bass-less passage already fades against the rest by then.
    var DROP_RETURN_FADE = 0.01;
    // Armed with the bass still playing (within the range under its peak) for half a minute in
    // all is no break: one loud bar set the peak and the ordinary bass reads out under it.
    // Disarm, and count the bass out again only once it has come back in.
    var DROP_STALE_PRESENT_S = 30;
    var DROP_PRESENT_ABOVE = 0.02;

    function DropSignalDetector() {
        this.clock = 0;
        this.outSeconds = 0;
        this.returnSeconds = 0;
        this.candidateAge = -1;
        this.heldSeconds = 0;
        this.heldBroken = false;
        this.kickDominance = 0;
        this.armed = false;
        this.presentSeconds = 0;
        this.waitForBass = false;
        this.level = 0;
    }
    DropSignalDetector.prototype.update = function (signal, dt) {
        var s = isObject(signal) ? signal : {};
        var step = hopSeconds(dt);
        this.clock += step;
        if (this.level > 0) this.level = Math.max(0, this.level - step / DROP_DECAY_S);
        var low = clamp01(num(s.freq_low, 0));
        var sustained = clamp01(num(s.sustained_low, low));
        var dominance = clamp01(num(s.low_dominance, 0));
        if (this.clock < DROP_WARMUP_S) return this.level;
        if (!this.armed) {
            if (sustained > DROP_BASS_IN_ABOVE) this.waitForBass = false;
            if (sustained < DROP_BASS_OUT_BELOW && !this.waitForBass) this.outSeconds += step;
            else if (sustained > DROP_BASS_IN_ABOVE) this.outSeconds = 0;
            if (this.outSeconds >= DROP_ARM_AFTER_S) {
                this.armed = true;
                this.presentSeconds = 0;
                this.returnSeconds = 0;
                this.candidateAge = -1;
            }
            return this.level;
        }
        if (sustained > DROP_PRESENT_ABOVE) this.presentSeconds += step;
        if (this.presentSeconds >= DROP_STALE_PRESENT_S) {
            this.armed = false;
            this.outSeconds = 0;
            this.waitForBass = true;
            return this.level;
        }
        var back = low >= DROP_RETURN_LEVEL && sustained >= DROP_RETURN_SUSTAINED;
        var before = this.returnSeconds;
        this.returnSeconds = back ? this.returnSeconds + step : 0;
        // A kick is the moment a return first passes its confirmation.
        var kick = before < DROP_RETURN_CONFIRM_S && this.returnSeconds >= DROP_RETURN_CONFIRM_S;
        var fire = false;
        if (this.candidateAge >= 0) {
            this.candidateAge += step;
            if (sustained < DROP_RETURN_SUSTAINED) this.heldBroken = true;
            else if (!this.heldBroken) this.heldSeconds += step;
            if (!this.heldBroken && this.heldSeconds >= DROP_RETURN_HOLD_S) {
                if (dominance >= this.kickDominance - DROP_RETURN_FADE) fire = true;
                else this.candidateAge = -1;
            } else if (kick && this.heldBroken && this.candidateAge >= DROP_RETURN_HOLD_S &&
                       this.candidateAge <= DROP_RETURN_AGAIN_S) {
                fire = true;
            } else if (this.heldBroken && this.candidateAge > DROP_RETURN_AGAIN_S) {
                this.candidateAge = -1;
            }
        }
        if (!fire && kick && this.candidateAge < 0) {
            this.candidateAge = 0;
            this.heldSeconds = this.returnSeconds;
            this.heldBroken = false;
            this.kickDominance = dominance;
        }
        if (fire) {
            this.candidateAge = -1;
            this.armed = false;
            this.outSeconds = 0;
            this.returnSeconds = 0;
            this.level = 1;
        }
        return this.level;
    };
    DropSignalDetector.prototype.isArmed = function () {
        return this.armed;
    };

    // ---------------------------------------------------------------- BeatTracker

    // Tempo by autocorrelation of two onset signals (kick-weighted, and the broadband onsets
    // alone) scored as a comb over four beat multiples at fractional lags, the clearer of the
    // two read; phase by a comb over the last beats; beats are emitted from a flywheel that the
    // phase estimate pulls in, so lights land on the beat rather than after it and keep running
    // through short breaks.
    var BT_MIN_BPM = 70;
    var BT_MAX_BPM = 190;
    var BT_BPM_STEP = 0.25;
    // History kept, in seconds of onset signal (about 770 samples at 48 kHz): the phase comb's
    // beats at the slowest tempo, with a margin. Its length in samples stays within these counts.
    var BT_HISTORY_SECONDS = 8.2;
    var BT_HISTORY_MIN = 256;
    var BT_HISTORY_MAX = 4096;
    // The onset signal's sample period: a 512-sample hop at 48 kHz. Shorter hops are grouped.
    var BT_ODF_PERIOD_S = 512 / 48000;
    // Tempo and phase are read every few samples (about 12 times a second), and only once the
    // history holds enough beats to read one.
    var BT_ANALYSE_EVERY = 8;
    var BT_MIN_SECONDS = 2.5;
    // Beat multiples in the tempo comb.
    var BT_COMB = 4;
    // The phase comb reads this many beats back, its offsets this fine (in samples).
    var BT_PHASE_BEATS = 8;
    var BT_PHASE_STEP = 0.25;
    // The kick leads the onset signal; the broadband onsets add the rest of the kit.
    var BT_KICK_WEIGHT = 1;
    var BT_ONSET_WEIGHT = 0.3;
    // The onset signal's delay behind the sound, in samples: beats are placed that much earlier.
    var BT_LATENCY_HOPS = 2.5;
    // No onset for this long is a silence or a break: no beats are emitted and the tempo and
    // phase are kept as they were.
    var BT_SILENCE_SECONDS = 2.5;
    // The autocorrelation's memory: short enough that an intro's riff (read at 4/3 or 5/4 of the
    // tempo) is forgotten within a couple of seconds of the beat coming in.
    var BT_ACF_TAU_S = 2;
    // A second, slower autocorrelation remembers the last several bars: a new tempo must win
    // there too, so a few seconds of a riff at 3/2 or 4/3 (a break, a fill) do not move it.
    var BT_SLOW_ACF_TAU_S = 8;
    // The phase follows the kick: while the kick is far below its recent strength (a break
    // with only hats left) the flywheel keeps the phase it had instead of sliding onto them.
    var BT_KICK_SHORT_S = 0.8;
    var BT_KICK_PEAK_DECAY_PER_S = 0.03;
    var BT_KICK_PRESENT = 0.3;
    // Music whose kick's rise (dB) has lately peaked below this has no kick: the whole onset
    // signal sets the phase.
    var BT_KICK_MIN_DB = 0.05;
    // A phase error beyond this share of a beat is a jump, not a drift the flywheel eases out.
    var BT_PHASE_JUMP = 0.2;
    // Analyses in a row (about 2.7 s) a phase that far away must win before the beats move:
    // real music often hits its off-beats as hard as its beats.
    var BT_PHASE_JUMP_VOTES = 32;
    // The phase memory: how strongly each phase (in 32nds of a beat) has drawn the onsets over
    // about the last 40 s. A phase the memory holds weaker than the current one must win this
    // many analyses in a row (about 22 s) before the beats move to it: a passage that hits the
    // off-beat for a few bars (a chorus, a riff) does not move them.
    var BT_PHASE_MEMORY_BINS = 32;
    var BT_PHASE_MEMORY_TAU_S = 40;
    var BT_PHASE_AGAINST_MEMORY_VOTES = 256;
    // Swing: each beat's onset and a swung eighth two thirds of a beat after it. The beat, so
    // soon after the eighth, rises less and can score a third of it. The strongest onsets are
    // taken for the eighth when those a third of a beat after them reach this share of theirs,
    // and those a third before them and half a beat away at most BT_SWING_OTHER of that.
    var BT_SWING_SHARE = 0.3;
    var BT_SWING_OTHER = 0.3;
    // ... and also win over four bars: a bar or two of a riff on the off-beat does not move them.
    var BT_PHASE_CHECK_BEATS = 16;
    // Periods this close (a share of the period) are the same tempo.
    var BT_SAME_TEMPO = 0.03;
    // Analyses in a row (about 1.4 s) a new tempo must win before it replaces the current one.
    var BT_TEMPO_CHANGE_VOTES = 16;
    // Until the history spans this long the reading is young: a new tempo wins after a couple
    // of analyses, so a wrong first guess does not hold for seconds.
    var BT_YOUNG_SECONDS = 8;
    var BT_YOUNG_CHANGE_VOTES = 2;
    // A tempo is as established as the strongest comb it has read: an intro without bass may
    // have given a weak, wrong one (a riff at 5/4 or 6/5 of the tempo). A reading this much
    // stronger than the current tempo ever was, that also wins in the slow autocorrelation,
    // replaces it after fewer analyses (about 0.35 s) than the usual 1.4 s.
    var BT_STRONGER_FACTOR = 1.5;
    var BT_STRONGER_CHANGE_VOTES = 4;
    // Half or double the current tempo is the same pulse: it must win this many times longer.
    var BT_OCTAVE_CHANGE_FACTOR = 4;
    var BT_HALF_BEAT_WEIGHT = 0.5;
    // Tempi far from the middle of the range need a stronger comb to win (a log-normal weight,
    // one octave wide); a reading at the very edge of the range is not taken at all.
    var BT_PRIOR_CENTRE_BPM = 120;
    var BT_PRIOR_OCTAVES = 1;
    var BT_EDGE_BPM = 1;
    // A comb maximum is a peak when it reads higher than this far either side of it.
    var BT_PEAK_WIDTH = 0.03;
    // The kick-weighted signal is read unless the broadband onsets alone are this much clearer
    // (a larger share of their energy at the beat multiples); the signal that reads the current
    // tempo is read unless the other is this much clearer. While young, the onsets lose that
    // hold when the kick reads 2/3 or 3/4 of their tempo: hats riffing across the bar.
    var BT_SOURCE_CLEARER = 1.5;
    // A tempo held this long is established: a reading much less clear than its usual one (a
    // passage without bass, an ending fading out) neither nudges it nor votes for another, and
    // another tempo must win twice as many analyses in a row to replace it.
    var BT_HELD_SECONDS = 20;
    var BT_WEAK_READING = 0.5;
    // ... and a reading beside it (further than the fine correction that keeps the beats on
    // time) must score this much better than it to nudge it.
    var BT_HELD_MARGIN = 0.9;
    var BT_HELD_FINE = 0.005;
    // ... and moves by at most this share of its period a second: a tempo drifts slowly, while
    // a passage whose onsets read 2-3 % off for a few seconds would pull it off the beat.
    var BT_HELD_SLEW_PER_S = 0.005;
    // The usual clearness is the readings' mean over this long, so music that stays less clear
    // is read again after a while.
    var BT_HELD_CONFIDENCE_TAU_S = 60;
    // A riff across the bar (three hits to four beats, or two to three) reads at 3/4, 4/3, 3/2
    // or 2/3 of the tempo and can read clearer than it for a minute: an established tempo whose
    // own comb still reads this share of its usual clearness keeps its place against it.
    var BT_CROSS_RATIOS = [3 / 4, 4 / 3, 3 / 2, 2 / 3];
    var BT_CROSS_TOLERANCE = 0.03;
    var BT_CROSS_KEEP = 0.75;
    // ... unless the reading is this many times clearer than the tempo's own comb: a tempo read
    // from a passage without bass does not hold out against the one the bass brings.
    var BT_CROSS_CLEARER = 3;
    // Below that share (the passage has changed) it still keeps its place against a reading
    // under this many times clearer, unless the reading lies clearly nearer the prior's centre
    // (BT_CROSS_NEARER_OCTAVES): a passage's riff is not the tempo, but a first tempo read at a
    // riff's ratio gives way.
    var BT_CROSS_WEAK_CLEARER = 2;
    // A tempo not yet established holds so against a cross ratio once it has run this long, if
    // it lies clearly nearer the prior's centre than the other reading (by this many octaves):
    // a song in 6/4 reads a quarter of its bar (2/3 of the tempo) for a passage, and without the
    // hold the two take turns until one is established. Two readings about as near (105 and
    // 140 BPM) are left to the votes: the prior cannot tell them apart.
    var BT_CROSS_HELD_SECONDS = 4;
    var BT_CROSS_NEARER_OCTAVES = 0.125;
    // A tempo not yet established that lies further than this (in octaves) from the prior's
    // centre (outside about 85-170 BPM) is mostly a riff read at 4/3, 3/2 or 8/5 of the beat:
    // the other signal is read unless the one reading it is clearly clearer, the slow memory
    // does not guard it, and a reading may win while the other signal still reads it.
    var BT_OUTLYING_OCTAVES = 0.5;

    function BeatFrame() {
        this.bpm = 0;
        this.beat_count = 0;
        this.beat = false;
        this.beat_confidence = 0;
        this.downbeat = false;
        this.phase = 0;
        this.drop = 0;
        this.low = 0;
        this.mid = 0;
        this.high = 0;
        this.all = 0;
        this.onset = 0;
        this.time = 0;
        this.json = { bpm: 0, beat_count: 0, beat: false, beat_confidence: 0, downbeat: false,
                      phase: 0, drop: 0, low: 0, mid: 0, high: 0, all: 0, onset: 0, time: 0 };
    }
    BeatFrame.prototype.extend = function (values) {
        if (!isObject(values)) return;
        for (var key in values) {
            if (key === 'json' || typeof BeatFrame.prototype[key] === 'function') continue;
            if (Object.prototype.hasOwnProperty.call(values, key)) this[key] = values[key];
        }
    };
    BeatFrame.prototype.get = function (key) {
        var v = this[key];
        return typeof v === 'function' ? undefined : v;
    };
    BeatFrame.prototype.toJson = function () {
        var j = this.json;
        j.bpm = num(this.bpm, 0);
        j.beat_count = num(this.beat_count, 0);
        j.beat = this.beat === true;
        j.beat_confidence = num(this.beat_confidence, 0);
        j.downbeat = this.downbeat === true;
        j.phase = num(this.phase, 0);
        j.drop = num(this.drop, 0);
        j.low = num(this.low, 0);
        j.mid = num(this.mid, 0);
        j.high = num(this.high, 0);
        j.all = num(this.all, 0);
        j.onset = num(this.onset, 0);
        j.time = num(this.time, 0);
        return j;
    };

    function octavesFromCentre(bpm) {
        return Math.log(bpm / BT_PRIOR_CENTRE_BPM) / Math.LN2;
    }
    // Whether bpm lies clearly nearer the prior's centre than other does.
    function isClearlyNearerCentre(bpm, other) {
        return Math.abs(octavesFromCentre(bpm)) + BT_CROSS_NEARER_OCTAVES <=
            Math.abs(octavesFromCentre(other));
    }
    function tempoPrior() {
        var count = Math.round((BT_MAX_BPM - BT_MIN_BPM) / BT_BPM_STEP) + 1;
        var prior = new Float64Array(count);
        for (var i = 0; i < count; i++) {
            var octaves = octavesFromCentre(BT_MIN_BPM + i * BT_BPM_STEP);
            prior[i] = Math.exp(-0.5 * octaves * octaves / (BT_PRIOR_OCTAVES * BT_PRIOR_OCTAVES));
        }
        return prior;
    }

    // Light smoothing of an onset signal widens single-sample peaks so fractional lags
    // interpolate well.
    function smoothOnsets(value, previous) {
        return 0.6 * value + 0.4 * previous;
    }

    // One onset signal's running autocorrelations (2 s and 8 s memories) with exponential
    // forgetting: every hop adds its product with each earlier hop up to the longest lag, so the
    // cost is spread evenly over the hops.
    function Periodicity(size) {
        this.size = size;
        this.deviation = new Float64Array(size);
        this.acf = new Float64Array(size);
        this.slowAcf = new Float64Array(size);
        this.level = 0;
        // The last reading (readTempo).
        this.bpm = 0;
        this.edge = false;
        this.confidence = 0;
    }
    Periodicity.prototype.clear = function () {
        this.deviation.fill(0);
        this.acf.fill(0);
        this.slowAcf.fill(0);
        this.level = 0;
    };
    // levelFollow: follow(step, BT_ACF_TAU_S), the same for both signals of a hop.
    Periodicity.prototype.accumulate = function (value, levelFollow, written, maxLag, decay, slowDecay) {
        this.level += (value - this.level) * levelFollow;
        var x = value - this.level;
        var size = this.size;
        var index = written % size;
        var dev = this.deviation;
        dev[index] = x;
        var lags = Math.min(maxLag + 1, written);
        var acf = this.acf;
        var slowAcf = this.slowAcf;
        for (var lag = 0; lag <= lags; lag++) {
            var product = x * dev[index];
            acf[lag] = decay * acf[lag] + product;
            slowAcf[lag] = slowDecay * slowAcf[lag] + product;
            index = index === 0 ? size - 1 : index - 1;
        }
    };

    function BeatTracker() {
        this.frame = new BeatFrame();
        this.prior = tempoPrior();
        this.size = 0;
        this.reset(0);
        this.clock = 0;
        this.beatCount = 0;
    }
    // rawHop: the length of the hops fed in. Short hops (high sample rates) are grouped so the
    // onset signal runs near BT_ODF_PERIOD_S: a 2048-sample frame at 192 kHz is shorter than a
    // cycle of a kick's fundamental and its level ripples with the waveform from hop to hop.
    BeatTracker.prototype.reset = function (rawHop) {
        this.rawHop = rawHop;
        this.group = rawHop > 0 ? Math.max(1, Math.round(BT_ODF_PERIOD_S / rawHop)) : 1;
        this.groupHops = 0;
        this.groupSignal = 0;
        this.groupKick = 0;
        this.groupRise = 0;
        this.groupOnset = 0;
        var hop = rawHop * this.group;
        this.hop = hop;
        this.written = 0;
        this.sinceAnalysis = 0;
        this.previousOdf = 0;
        this.period = 0;
        this.confidence = 0;
        this.candidate = 0;
        this.candidateVotes = 0;
        this.tempoConfidence = 0;
        this.tempoSince = 0;
        this.heldConfidence = 0;
        this.ownClearness = 0;
        this.currentClearness = 0;
        this.nextBeat = -1;
        this.lastBeat = -1;
        this.phaseJumpVotes = 0;
        if (!this.phaseMemory) {
            this.phaseMemory = new Float64Array(BT_PHASE_MEMORY_BINS);
            this.phaseHeard = new Float64Array(BT_PHASE_MEMORY_BINS);
        }
        this.forgetPhase();
        this.lastOnsetTime = -1;
        this.odfMean = 0;
        this.kickShort = 0;
        this.kickPeak = 0;
        this.kickSince = -1;
        // Buffers are sized for the hop length, so reallocated only when the stream changes.
        var size = hop > 0 ? clamp(Math.ceil(BT_HISTORY_SECONDS / hop), BT_HISTORY_MIN, BT_HISTORY_MAX)
            : BT_HISTORY_MIN;
        if (size !== this.size) {
            this.size = size;
            this.odf = new Float64Array(size);
            this.kickOdf = new Float64Array(size);
            this.linear = new Float64Array(size);
            this.mixed = new Periodicity(size);
            this.onsets = new Periodicity(size);
        } else {
            this.odf.fill(0);
            this.kickOdf.fill(0);
            this.mixed.clear();
            this.onsets.clear();
        }
        // The source the tempo was last read from (combScore, refine and the rest read these).
        this.acf = this.mixed.acf;
        this.slowAcf = this.mixed.slowAcf;
        this.acfDecay = hop > 0 ? Math.exp(-hop / BT_ACF_TAU_S) : 0;
        this.slowAcfDecay = hop > 0 ? Math.exp(-hop / BT_SLOW_ACF_TAU_S) : 0;
        this.maxLag = hop > 0 ? Math.min(size - 2, Math.ceil(BT_COMB * 60 / BT_MIN_BPM / hop) + 2) : 0;
        this.previousKick = 0;
        this.previousOnset = 0;
    };
    BeatTracker.prototype.update = function (bands, dt) {
        var b = isObject(bands) ? bands : {};
        var step = hopSeconds(dt);
        var f = this.frame;
        f.low = clamp01(num(b.low, 0));
        f.mid = clamp01(num(b.mid, 0));
        f.high = clamp01(num(b.high, 0));
        f.all = clamp01(num(b.all, 0));
        f.onset = Math.max(0, num(b.onset, 0));
        f.drop = Math.max(0, num(b.drop, 0));
        f.beat = false;
        f.downbeat = false;
        if (step <= 0) return f;

        // A different hop length means a different stream: start over.
        if (this.rawHop <= 0 || Math.abs(step - this.rawHop) > 0.2 * this.rawHop) this.reset(step);
        this.clock += step;
        f.time = this.clock;

        var audible = num(b.level_db, 0) > WINDOW_AUDIBLE_DB;
        var kick = audible ? Math.max(0, num(b.low_flux, 0)) : 0;
        this.groupSignal += audible ? BT_KICK_WEIGHT * kick + BT_ONSET_WEIGHT * f.onset : 0;
        this.groupKick += kick;
        this.groupRise += audible ? Math.max(0, num(b.low_rise_db, 0)) : 0;
        this.groupOnset += audible ? f.onset : 0;
        this.groupHops += 1;
        if (this.groupHops >= this.group) {
            this.push(this.groupSignal / this.groupHops, this.groupKick / this.groupHops, this.groupRise,
                      this.groupOnset / this.groupHops, step * this.groupHops);
            this.groupHops = 0;
            this.groupSignal = 0;
            this.groupKick = 0;
            this.groupRise = 0;
            this.groupOnset = 0;
        }

        var quiet = this.isQuiet();
        if (quiet) this.confidence *= Math.exp(-step / 1.5);
        if (this.period > 0 && this.nextBeat >= 0) {
            if (this.clock >= this.nextBeat) {
                if (!quiet) {
                    this.beatCount += 1;
                    f.beat = true;
                    f.downbeat = (this.beatCount - 1) % 4 === 0;
                }
                this.lastBeat = this.nextBeat;
                while (this.nextBeat <= this.clock) this.nextBeat += this.period;
            }
            var since = this.clock - this.lastBeat;
            f.phase = this.lastBeat >= 0 ? clamp01(since / this.period) : 0;
        }
        f.bpm = this.period > 0 ? 60 / this.period : 0;
        f.beat_count = this.beatCount;
        f.beat_confidence = this.confidence;
        return f;
    };
    // One sample of the onset signal (signal), its kick part (kick), the kick's dB rise and the
    // broadband onsets alone (onset).
    BeatTracker.prototype.push = function (signal, kick, kickRise, onset, step) {
        var smoothed = smoothOnsets(signal, this.previousOdf);
        this.previousOdf = signal;
        this.kickOdf[this.written % this.size] = smoothOnsets(kick, this.previousKick);
        this.previousKick = kick;
        this.odf[this.written % this.size] = smoothed;
        var levelFollow = follow(step, BT_ACF_TAU_S);
        this.mixed.accumulate(smoothed, levelFollow, this.written, this.maxLag, this.acfDecay,
                              this.slowAcfDecay);
        this.onsets.accumulate(smoothOnsets(onset, this.previousOnset), levelFollow, this.written,
                               this.maxLag, this.acfDecay, this.slowAcfDecay);
        this.previousOnset = onset;
        this.written += 1;
        // An onset stands well above the signal's mean over the last few seconds (isQuiet).
        this.odfMean += (signal - this.odfMean) * follow(step, 4);
        if (signal > 1.5 * this.odfMean && signal > 0.5) this.lastOnsetTime = this.clock;
        this.kickShort += (kickRise - this.kickShort) * follow(step, BT_KICK_SHORT_S);
        this.kickPeak = Math.max(this.kickShort, this.kickPeak * (1 - BT_KICK_PEAK_DECAY_PER_S * step));
        var kickPresent = this.kickShort >= BT_KICK_PRESENT * this.kickPeak;
        if (!kickPresent) this.kickSince = -1;
        else if (this.kickSince < 0) this.kickSince = this.clock;

        this.sinceAnalysis += 1;
        if (this.sinceAnalysis >= BT_ANALYSE_EVERY && this.written * this.hop >= BT_MIN_SECONDS) {
            this.sinceAnalysis = 0;
            this.analyse();
        }
    };
    // Copies the history into time order with the mean removed; returns the sample count.
    BeatTracker.prototype.linearize = function (source) {
        var n = Math.min(this.written, this.size);
        var start = this.written - n;
        var mean = 0;
        for (var i = 0; i < n; i++) {
            var v = source[(start + i) % this.size];
            this.linear[i] = v;
            mean += v;
        }
        mean /= n;
        for (var j = 0; j < n; j++) this.linear[j] -= mean;
        return n;
    };
    BeatTracker.prototype.acfAt = function (lag, acf) {
        var i = lag | 0;
        var frac = lag - i;
        return acf[i] * (1 - frac) + acf[i + 1] * frac;
    };
    // The half-beat lag counts too: real music subdivides its beat in two, so a reading at 4/3
    // or 3/2 of the tempo (whose half lag falls between the eighths) loses to the true one.
    // The confidence reads the beat multiples alone (halfWeight 0).
    BeatTracker.prototype.combScore = function (bpm, maxLag, halfWeight, source) {
        var acf = source || this.acf;
        var lag = 60 / bpm / this.hop;
        var half = halfWeight === undefined ? BT_HALF_BEAT_WEIGHT : halfWeight;
        var score = half * this.acfAt(lag / 2, acf);
        var used = half;
        for (var k = 1; k <= BT_COMB; k++) {
            if (k * lag >= maxLag) break;
            score += this.acfAt(k * lag, acf);
            used += 1;
        }
        return used > half ? score / used : -Infinity;
    };
    // The tempo one source reads: its comb's best (weighted by the prior), refined, with its
    // confidence; null when it reads nothing. Leaves the source as the one combScore reads.
    BeatTracker.prototype.readTempo = function (source, maxLag) {
        this.acf = source.acf;
        this.slowAcf = source.slowAcf;
        var energy = this.acf[0];
        if (!(energy > 1e-9)) return null;
        var bestBpm = 0;
        var best = -Infinity;
        for (var bpm = BT_MIN_BPM; bpm <= BT_MAX_BPM; bpm += BT_BPM_STEP) {
            var s = this.combScore(bpm, maxLag);
            if (s > 0) s *= this.prior[Math.round((bpm - BT_MIN_BPM) / BT_BPM_STEP)];
            if (s > best) {
                best = s;
                bestBpm = bpm;
            }
        }
        if (!(best > 0)) return null;
        // A maximum at the edge of the range is the slope of a peak outside it (in real music
        // often 4/3 or 5/4 of the tempo, from a subdivision pattern): not a reading.
        var slowEdge = bestBpm <= BT_MIN_BPM + BT_EDGE_BPM;
        var edge = bestBpm >= BT_MAX_BPM - BT_EDGE_BPM || slowEdge;
        // A pulse train scores the same at half tempo; prefer the faster reading when the
        // double tempo is in range and nearly as strong. A maximum at the slow edge may be the
        // half of a tempo of 140-142: its double, where that is a peak of its own, is read.
        if (bestBpm * 2 <= BT_MAX_BPM) {
            var doubled = this.refine(bestBpm * 2, maxLag);
            var doubledPeak = slowEdge && this.isCombPeak(doubled, maxLag);
            if (doubledPeak || this.combScore(doubled, maxLag) >= 0.6 * best) {
                bestBpm = doubled;
                if (doubledPeak) edge = false;
            }
        }
        bestBpm = this.peakAtMultiple(this.refine(bestBpm, maxLag), maxLag);
        source.bpm = bestBpm;
        source.edge = edge;
        source.confidence = clamp01(this.combScore(bestBpm, maxLag, 0) / energy);
        return source;
    };
    BeatTracker.prototype.isCombPeak = function (bpm, maxLag) {
        var score = this.combScore(bpm, maxLag);
        return score > 0 && score > this.combScore(bpm * (1 - BT_PEAK_WIDTH), maxLag) &&
            score > this.combScore(bpm * (1 + BT_PEAK_WIDTH), maxLag);
    };
    BeatTracker.prototype.readsCurrent = function (reading) {
        return this.period > 0 && Math.abs(60 / reading.bpm - this.period) <= BT_SAME_TEMPO * this.period;
    };
    // The kick reads 2/3 or 3/4 of the onsets' tempo while the tracker is young.
    BeatTracker.prototype.kickUnderRiff = function (mixed, onsets) {
        return this.isYoung() && mixed.bpm < onsets.bpm && isCrossRatio(mixed.bpm / onsets.bpm);
    };
    BeatTracker.prototype.analyse = function () {
        var n = Math.min(this.written, this.size);
        var maxLag = Math.min(this.written - 2, this.maxLag);
        // The kick-weighted signal and the broadband onsets alone: an intro's bass line (or none)
        // can beat at another period than its hats, a break's hats at another than its kick.
        var mixed = this.readTempo(this.mixed, maxLag);
        var onsets = this.readTempo(this.onsets, maxLag);
        var outlying = this.isOutlying();
        var onsetsFirst = mixed && onsets && (outlying
            ? this.readsCurrent(mixed) && !this.readsCurrent(onsets)
            : this.readsCurrent(onsets) && !this.readsCurrent(mixed) && !this.kickUnderRiff(mixed, onsets));
        var reading = !onsets ? mixed : !mixed ? onsets
            : onsetsFirst ? (mixed.confidence > BT_SOURCE_CLEARER * onsets.confidence ? mixed : onsets)
            : (onsets.confidence > BT_SOURCE_CLEARER * mixed.confidence ? onsets : mixed);
        if (!reading) {
            this.confidence *= 0.5;
            return;
        }
        this.acf = reading.acf;
        this.slowAcf = reading.slowAcf;
        var bestBpm = reading.bpm;
        var confidence = reading.confidence;
        // No onsets lately: keep the tempo and phase we had (the flywheel runs on). The next song
        // may start on another phase at the same tempo: the phase memory starts again.
        if (this.isQuiet()) {
            this.forgetPhase();
            return;
        }
        // In kick-driven music the tempo is re-read only once the whole analysed span has the
        // kick in it: a span across a break and its drop mixes two patterns and reads slightly off.
        // A tempo not yet established is re-read anyway when both signals agree: a sparse kick
        // can keep the span unsettled for many seconds, holding a wrong first guess.
        var kickMusic = this.kickPeak >= BT_KICK_MIN_DB;
        var spanSeconds = Math.min(n * this.hop, 2 * BT_ACF_TAU_S);
        var agreed = mixed && onsets && Math.abs(mixed.bpm / onsets.bpm - 1) <= BT_CROSS_TOLERANCE;
        var settled = !reading.edge && (!kickMusic || this.period <= 0 ||
            (this.kickSince >= 0 && this.clock - this.kickSince >= spanSeconds - 1) ||
            (agreed && !this.isEstablished()));
        this.currentClearness = this.period > 0
            ? clamp01(this.combScore(60 / this.period, maxLag, 0) / this.acf[0]) : 0;
        if (settled) {
            // A tempo not yet established has no memory worth defending against a reading both
            // onset signals make, nor once its own comb has lost its clearness (the intro's riff
            // it was read from has gone).
            var slowAgrees = this.slowEvidence(bestBpm, maxLag) || (!this.isEstablished() &&
                (agreed || outlying || this.currentClearness < BT_WEAK_READING * this.ownClearness));
            // Nor does a reading win against the tempo while the other signal still reads it:
            // a fill or a riff in one of them is not a new tempo.
            var other = reading === mixed ? onsets : mixed;
            if (other && !this.isYoung() && !outlying && this.readsCurrent(other) &&
                !this.readsCurrent(reading)) slowAgrees = false;
            // An established tempo is nudged past the fine correction only when the other signal
            // reads the same pulse: with the kick gone, the onsets alone drift with a fill.
            var seconded = !other || isSamePulse(other.bpm / bestBpm);
            this.adoptTempo(bestBpm, confidence, slowAgrees,
                            this.clearlyBetter(bestBpm, maxLag, slowAgrees && seconded));
        } else if (this.isEstablished()) {
            // A span that cannot be read (the kick gone or just back) breaks a new tempo's run of
            // wins: readings either side of a bass-less gap do not add up to replace the tempo.
            this.candidateVotes = 0;
        }
        if (this.period <= 0) return;
        if (!kickMusic) {
            // Music without a kick: the whole onset signal sets the phase.
            this.lockPhase(this.linearize(this.odf));
        } else if (this.kickSince >= 0) {
            // The kick is present: push keeps kickSince only while it is.
            this.lockPhase(this.linearize(this.kickOdf));
        }
    };
    // Golden-section search for the comb maximum within a quarter BPM step around bpm.
    BeatTracker.prototype.refine = function (bpm, maxLag) {
        var lo = bpm - BT_BPM_STEP;
        var hi = bpm + BT_BPM_STEP;
        for (var i = 0; i < 14; i++) {
            var m1 = hi - (hi - lo) * 0.618;
            var m2 = lo + (hi - lo) * 0.618;
            if (this.combScore(m1, maxLag) >= this.combScore(m2, maxLag)) hi = m2;
            else lo = m1;
        }
        return (lo + hi) / 2;
    };
    // Linear interpolation between lags leans towards whole lags; the parabola through the
    // autocorrelation peak at the longest beat multiple gives the period to a fraction of a hop.
    BeatTracker.prototype.peakAtMultiple = function (bpm, maxLag) {
        var lag = 60 / bpm / this.hop;
        var k = BT_COMB;
        while (k > 1 && k * lag >= maxLag - 2) k -= 1;
        var centre = Math.round(k * lag);
        var best = centre;
        for (var i = centre - 2; i <= centre + 2; i++) {
            if (i > 0 && i < maxLag - 1 && this.acf[i] > this.acf[best]) best = i;
        }
        if (best <= 0 || best >= maxLag - 1) return bpm;
        var y0 = this.acf[best - 1], y1 = this.acf[best], y2 = this.acf[best + 1];
        var curvature = y0 - 2 * y1 + y2;
        if (!(curvature < 0)) return bpm;
        var peak = best + 0.5 * (y0 - y2) / curvature;
        var refined = 60 / (peak / k * this.hop);
        return Math.abs(refined - bpm) <= 0.01 * bpm ? refined : bpm;
    };
    // Whether the slow autocorrelation favours bpm over the current tempo as well.
    BeatTracker.prototype.slowEvidence = function (bpm, maxLag) {
        if (this.period <= 0 || this.isYoung()) return true;
        return this.combScore(bpm, maxLag, undefined, this.slowAcf) >
            this.combScore(60 / this.period, maxLag, undefined, this.slowAcf);
    };
    BeatTracker.prototype.isQuiet = function () {
        return this.lastOnsetTime < 0 || this.clock - this.lastOnsetTime > BT_SILENCE_SECONDS;
    };
    // Whether the tracker has heard too little yet to hold any tempo against a new reading.
    BeatTracker.prototype.isYoung = function () {
        return this.written * this.hop < BT_YOUNG_SECONDS;
    };
    BeatTracker.prototype.isOutlying = function () {
        if (this.period <= 0 || this.isEstablished()) return false;
        return Math.abs(octavesFromCentre(60 / this.period)) > BT_OUTLYING_OCTAVES;
    };
    BeatTracker.prototype.isEstablished = function () {
        return this.period > 0 && this.clock - this.tempoSince >= BT_HELD_SECONDS;
    };
    // Whether bpm reads clearly better than an established tempo, in the slow autocorrelation
    // too: a broad peak beside it (a passage without bass) is no reason to move it.
    BeatTracker.prototype.clearlyBetter = function (bpm, maxLag, slowAgrees) {
        if (!this.isEstablished()) return true;
        if (Math.abs(60 / bpm - this.period) <= BT_HELD_FINE * this.period) return true;
        return slowAgrees &&
            this.combScore(60 / this.period, maxLag) < BT_HELD_MARGIN * this.combScore(bpm, maxLag);
    };
    BeatTracker.prototype.adoptTempo = function (bpm, confidence, slowAgrees, clearer) {
        var period = 60 / bpm;
        this.confidence += (confidence - this.confidence) * 0.3;
        if (this.period <= 0) {
            this.setPeriod(period, confidence);
            return;
        }
        var held = this.isEstablished();
        var weak = held && confidence < BT_WEAK_READING * this.heldConfidence;
        var meanFollow = follow(BT_ANALYSE_EVERY * this.hop, BT_HELD_CONFIDENCE_TAU_S);
        this.heldConfidence += (confidence - this.heldConfidence) * meanFollow;
        var crossHeld = held || (this.clock - this.tempoSince >= BT_CROSS_HELD_SECONDS &&
            isClearlyNearerCentre(60 / this.period, bpm));
        var keepUnder = this.currentClearness >= BT_CROSS_KEEP * this.ownClearness ? BT_CROSS_CLEARER
            : isClearlyNearerCentre(bpm, 60 / this.period) ? 0 : BT_CROSS_WEAK_CLEARER;
        var keeps = crossHeld && confidence < keepUnder * this.currentClearness;
        this.ownClearness += (this.currentClearness - this.ownClearness) * meanFollow;
        if (weak) {
            this.candidateVotes = 0;
            return;
        }
        if (Math.abs(period - this.period) <= BT_SAME_TEMPO * this.period) {
            if (clearer) {
                var nudge = (period - this.period) * 0.3;
                if (held) {
                    var slew = BT_HELD_SLEW_PER_S * this.period * BT_ANALYSE_EVERY * this.hop;
                    nudge = clamp(nudge, -slew, slew);
                }
                this.period += nudge;
            }
            this.tempoConfidence = Math.max(this.tempoConfidence, confidence);
            this.candidateVotes = 0;
            return;
        }
        // A different tempo must be seen several times in a row before it replaces this one.
        if (!slowAgrees) {
            this.candidateVotes = 0;
            return;
        }
        if (this.candidate > 0 && Math.abs(period - this.candidate) <= BT_SAME_TEMPO * this.candidate) {
            this.candidateVotes += 1;
        } else {
            this.candidate = period;
            this.candidateVotes = 1;
        }
        var ratio = this.candidate / this.period;
        if (keeps && isCrossRatio(ratio)) {
            this.candidateVotes = 0;
            return;
        }
        var octave = Math.abs(ratio - 2) <= 0.06 || Math.abs(ratio - 0.5) <= 0.015;
        var needed = this.isYoung() ? BT_YOUNG_CHANGE_VOTES
            : octave ? BT_OCTAVE_CHANGE_FACTOR * BT_TEMPO_CHANGE_VOTES
            : confidence >= BT_STRONGER_FACTOR * this.tempoConfidence ? BT_STRONGER_CHANGE_VOTES
            : BT_TEMPO_CHANGE_VOTES;
        if (held) needed *= 2;
        if (this.candidateVotes >= needed) {
            this.setPeriod(this.candidate, confidence);
            this.candidateVotes = 0;
        }
    };
    BeatTracker.prototype.setPeriod = function (period, confidence) {
        // Phases are shares of a beat: those of another tempo mean nothing at this one.
        this.forgetPhase();
        this.period = period;
        this.tempoConfidence = confidence;
        this.tempoSince = this.clock;
        this.heldConfidence = confidence;
        this.ownClearness = confidence;
    };
    // The same tempo, its half or its double.
    function isSamePulse(ratio) {
        return Math.abs(ratio - 1) <= BT_CROSS_TOLERANCE || Math.abs(ratio / 2 - 1) <= BT_CROSS_TOLERANCE ||
            Math.abs(2 * ratio - 1) <= BT_CROSS_TOLERANCE;
    }
    function isCrossRatio(ratio) {
        for (var i = 0; i < BT_CROSS_RATIOS.length; i++) {
            if (Math.abs(ratio / BT_CROSS_RATIOS[i] - 1) <= BT_CROSS_TOLERANCE) return true;
        }
        return false;
    }
    BeatTracker.prototype.odfAt = function (pos) {
        // pos: fractional index into the linear history; zero outside it.
        if (pos < 0) return 0;
        var i = pos | 0;
        var frac = pos - i;
        var a = this.linear[i];
        var b = i + 1 < this.linearLength ? this.linear[i + 1] : a;
        return a * (1 - frac) + b * frac;
    };
    // The onsets at one offset (in hops before the newest) and whole beats before it, the
    // recent ones weighted most.
    BeatTracker.prototype.phaseScore = function (offset, periodHops, newest, beats) {
        var s = 0;
        var w = 1;
        for (var k = 0; k < beats; k++) {
            var pos = newest - offset - k * periodHops;
            if (pos < 0) break;
            s += w * this.odfAt(pos);
            w *= 0.85;
        }
        return s;
    };
    // The strongest onsets within a twelfth of a beat of an offset, and where they are.
    BeatTracker.prototype.peakNear = function (offset, periodHops, newest) {
        var reach = periodHops / 12;
        var peak = { offset: offset, score: -Infinity };
        for (var o = offset - reach; o <= offset + reach; o += BT_PHASE_STEP) {
            var at = o - Math.floor(o / periodHops) * periodHops;
            var s = this.phaseScore(at, periodHops, newest, BT_PHASE_BEATS);
            if (s > peak.score) {
                peak.score = s;
                peak.offset = at;
            }
        }
        return peak;
    };
    // The beat when the strongest onsets are a swung eighth (offsets count back from the newest
    // onset, so the beat after them lies a third of a beat nearer), or null.
    BeatTracker.prototype.swungBeat = function (best, bestOffset, periodHops, newest) {
        if (best <= 0) return null;
        var after = this.peakNear(bestOffset - periodHops / 3, periodHops, newest);
        if (after.score < BT_SWING_SHARE * best) return null;
        var before = this.peakNear(bestOffset + periodHops / 3, periodHops, newest);
        var half = this.peakNear(bestOffset + periodHops / 2, periodHops, newest);
        var other = BT_SWING_OTHER * after.score;
        return before.score <= other && half.score <= other ? after.offset : null;
    };
    BeatTracker.prototype.forgetPhase = function () {
        this.phaseMemory.fill(0);
        this.phaseMemoryTurn = 0;
    };
    // The memory's slot for a phase in beats after the flywheel's next beat. The memory is turned
    // with the flywheel when it jumps, so a slot keeps its place in the beat.
    BeatTracker.prototype.phaseSlot = function (phase) {
        var turned = phase + this.phaseMemoryTurn;
        var slot = Math.round((turned - Math.floor(turned)) * BT_PHASE_MEMORY_BINS);
        return slot % BT_PHASE_MEMORY_BINS;
    };
    // Adds this analysis's phase scores (per slot, the best, as a share of the best of all). An
    // analysis that hardly tells the phases apart (its mean near its best) counts for little.
    BeatTracker.prototype.rememberPhase = function (best) {
        if (!(best > 0)) return;
        var mean = 0;
        for (var j = 0; j < BT_PHASE_MEMORY_BINS; j++) mean += this.phaseHeard[j];
        mean /= BT_PHASE_MEMORY_BINS;
        var contrast = Math.max(0, 1 - mean / best);
        var learn = (1 - Math.exp(-BT_ANALYSE_EVERY * this.hop / BT_PHASE_MEMORY_TAU_S)) * contrast;
        for (var i = 0; i < BT_PHASE_MEMORY_BINS; i++) {
            this.phaseMemory[i] += (this.phaseHeard[i] / best - this.phaseMemory[i]) * learn;
        }
    };
    BeatTracker.prototype.lockPhase = function (n) {
        this.linearLength = n;
        var periodHops = this.period / this.hop;
        var newest = n - 1;
        var bestOffset = 0;
        var best = -Infinity;
        var running = this.nextBeat >= 0;
        this.phaseHeard.fill(0);
        for (var offset = 0; offset < periodHops; offset += BT_PHASE_STEP) {
            var s = this.phaseScore(offset, periodHops, newest, BT_PHASE_BEATS);
            if (running) {
                var beat = this.clock - (offset + BT_LATENCY_HOPS) * this.hop;
                var slot = this.phaseSlot((beat - this.nextBeat) / this.period);
                this.phaseHeard[slot] = Math.max(this.phaseHeard[slot], s);
            }
            if (s > best) {
                best = s;
                bestOffset = offset;
            }
        }
        if (running) this.rememberPhase(best);
        var swungBeat = this.swungBeat(best, bestOffset, periodHops, newest);
        if (swungBeat !== null) bestOffset = swungBeat;
        var lastOnsetBeat = this.clock - (bestOffset + BT_LATENCY_HOPS) * this.hop;
        var next = lastOnsetBeat + this.period;
        while (next <= this.clock) next += this.period;
        if (this.nextBeat < 0) {
            this.nextBeat = next;
            return;
        }
        // Pull the flywheel towards the estimate, wrapping the error into ±half a beat. A large
        // jump must persist for a while (a real phase change), a single stray onset must not.
        var error = next - this.nextBeat;
        error -= Math.round(error / this.period) * this.period;
        var jumped = false;
        if (Math.abs(error) > BT_PHASE_JUMP * this.period) {
            // The new phase must also win over four bars, or the beats stay where they are (a
            // swung beat is weaker than its eighth and has passed its own test).
            var current = (this.clock - this.nextBeat) / this.hop - BT_LATENCY_HOPS;
            current -= Math.floor(current / periodHops) * periodHops;
            if (swungBeat === null &&
                this.phaseScore(bestOffset, periodHops, newest, BT_PHASE_CHECK_BEATS) <
                this.phaseScore(current, periodHops, newest, BT_PHASE_CHECK_BEATS)) {
                this.phaseJumpVotes = 0;
                return;
            }
            this.phaseJumpVotes += 1;
            var remembered = this.phaseMemory[this.phaseSlot(error / this.period)] >=
                this.phaseMemory[this.phaseSlot(0)];
            var needed = remembered ? BT_PHASE_JUMP_VOTES : BT_PHASE_AGAINST_MEMORY_VOTES;
            if (this.phaseJumpVotes < needed) return;
            jumped = true;
        }
        this.phaseJumpVotes = 0;
        var target = this.nextBeat + 0.5 * error;
        if (this.lastBeat >= 0 && target < this.lastBeat + 0.5 * this.period) {
            target = this.lastBeat + 0.5 * this.period;
        }
        if (jumped) this.phaseMemoryTurn += (target - this.nextBeat) / this.period;
        this.nextBeat = target;
    };

    // ---------------------------------------------------------------- themes

    function color(r, g, b) {
        return [r, g, b];
    }
    var DEFAULT_THEME_NAME = 'Rave';
    // The themes of the development cloud's configuration (devcloud/data/config.json), used
    // until the bridge pushes the configured ones with applyControl.
    var BUILTIN_THEMES = [
        { name: 'Rave', palette: [color(1, 0, 0.6), color(0, 0.9, 1), color(0.5, 0, 1), color(1, 1, 1)],
          palettes: [[color(0, 1, 0.3), color(1, 0, 1), color(0, 0.3, 1)],
                     [color(1, 0.4, 0), color(1, 0, 0.3), color(1, 1, 0)]],
          allowsRainbow: true, alwaysRainbow: false },
        { name: 'Sunset', palette: [color(1, 0.3, 0), color(1, 0.6, 0.1), color(0.9, 0.1, 0.2)],
          palettes: [[color(1, 0.5, 0.2), color(0.8, 0, 0.4), color(1, 0.8, 0.3)]],
          allowsRainbow: false, alwaysRainbow: false },
        { name: 'Ocean', palette: [color(0, 0.4, 1), color(0, 0.9, 0.8), color(0.2, 0.2, 0.8)],
          palettes: [], allowsRainbow: false, alwaysRainbow: false },
        { name: 'Forest', palette: [color(0.1, 0.8, 0.2), color(0.6, 0.9, 0), color(0, 0.5, 0.3)],
          palettes: [], allowsRainbow: false, alwaysRainbow: false },
        { name: 'Warm White', palette: [color(1, 0.85, 0.6), color(1, 0.75, 0.45), color(1, 0.95, 0.8)],
          palettes: [], allowsRainbow: false, alwaysRainbow: false },
        { name: 'Rainbow', palette: [color(1, 0, 0), color(0, 1, 0), color(0, 0, 1)],
          palettes: [], allowsRainbow: true, alwaysRainbow: true }
    ];

    // Colour schemes and the rainbow flags.
    //  - A theme's schemes, in the order the colour-scheme shift steps through them (wrapping
    //    round): its palette, then each alternative palette, then, only when the theme allows it
    //    (`allowsRainbow`), the rainbow scheme, in which every look takes its colours from
    //    RAINBOW_PALETTE and the colour-cycle looks sweep the whole hue wheel.
    //  - `alwaysRainbow` makes the colour modes rainbow: the colour-cycle looks sweep the hue wheel
    //    in every scheme, while the other looks keep the scheme's palette. It implies
    //    `allowsRainbow`.
    //  - A theme with neither flag never shows a rainbow, whatever the mode or the shifts.
    //  - Choosing another theme starts again at its palette.
    var RAINBOW_PALETTE = [color(1, 0, 0), color(1, 1, 0), color(0, 1, 0), color(0, 1, 1), color(0, 0, 1),
                           color(1, 0, 1)];

    function readColor(c) {
        if (Array.isArray(c) && c.length >= 3 && typeof c[0] === 'number' && typeof c[1] === 'number' &&
            typeof c[2] === 'number') {
            return [clamp01(c[0]), clamp01(c[1]), clamp01(c[2])];
        }
        if (isObject(c) && typeof c.r === 'number' && typeof c.g === 'number' && typeof c.b === 'number') {
            return [clamp01(c.r), clamp01(c.g), clamp01(c.b)];
        }
        return null;
    }
    function readPalette(list) {
        var out = [];
        if (!Array.isArray(list)) return out;
        for (var i = 0; i < list.length; i++) {
            var c = readColor(list[i]);
            if (c) out.push(c);
        }
        return out;
    }
    // A theme as the session uses it: `palettes` holds the palette and then the alternatives.
    function readTheme(t) {
        if (!isObject(t) || typeof t.name !== 'string' || t.name === '') return null;
        var palettes = [];
        var palette = readPalette(t.palette);
        if (palette.length > 0) palettes.push(palette);
        if (Array.isArray(t.palettes)) {
            for (var i = 0; i < t.palettes.length; i++) {
                var p = readPalette(t.palettes[i]);
                if (p.length >= 1) palettes.push(p);
            }
        }
        if (palettes.length === 0) palettes.push([color(1, 1, 1)]);
        var always = t.alwaysRainbow === true || t.always_rainbow === true;
        return { name: t.name, palettes: palettes,
                 allowsRainbow: always || t.allowsRainbow === true || t.allows_rainbow === true,
                 alwaysRainbow: always };
    }
    function schemeCount(theme) {
        return theme.palettes.length + (theme.allowsRainbow ? 1 : 0);
    }

    function hueToRgb(h, out) {
        var x = (h % 1) * 6;
        if (x < 0) x += 6;
        var i = x | 0;
        var f = x - i;
        var r, g, b;
        switch (i) {
        case 0: r = 1; g = f; b = 0; break;
        case 1: r = 1 - f; g = 1; b = 0; break;
        case 2: r = 0; g = 1; b = f; break;
        case 3: r = 0; g = 1 - f; b = 1; break;
        case 4: r = f; g = 0; b = 1; break;
        default: r = 1; g = 0; b = 1 - f; break;
        }
        out[0] = r;
        out[1] = g;
        out[2] = b;
    }

    // ---------------------------------------------------------------- fixtures

    // Channel kinds a fixture definition may list (strings or { type, default } objects).
    var CH_OTHER = 0, CH_DIMMER = 1, CH_RED = 2, CH_GREEN = 3, CH_BLUE = 4, CH_WHITE = 5,
        CH_AMBER = 6, CH_STROBE = 7;
    var CHANNEL_ALIASES = {
        dimmer: CH_DIMMER, intensity: CH_DIMMER, master: CH_DIMMER, dim: CH_DIMMER,
        red: CH_RED, r: CH_RED, green: CH_GREEN, g: CH_GREEN, blue: CH_BLUE, b: CH_BLUE,
        white: CH_WHITE, w: CH_WHITE, amber: CH_AMBER, a: CH_AMBER,
        strobe: CH_STROBE, shutter: CH_STROBE
    };
    var MANUAL_DIMMER_TYPE = 'pelorin/manual-dimmer@1ch';
    // Universes produced, the lowest numbers first; fixtures on universes beyond them stay dark
    // and out of the interpretation. 64 universes (32,768 channels) are many times any show the
    // bridge drives and bound the work of a hostile show: a fixture at the end of a universe
    // costs a whole universe, which the host converts 60 times a second.
    var MAX_UNIVERSES = 64;
    var DMX_CHANNELS = 512;

    // Layout for a definition without a channel list, by width.
    function inferredChannels(width) {
        switch (width) {
        case 1: return ['dimmer'];
        case 2: return ['dimmer', 'strobe'];
        case 3: return ['red', 'green', 'blue'];
        case 4: return ['red', 'green', 'blue', 'white'];
        case 5: return ['dimmer', 'red', 'green', 'blue', 'strobe'];
        default: return ['dimmer', 'red', 'green', 'blue', 'white', 'strobe'];
        }
    }
    function readChannels(definition, width) {
        var list = isObject(definition) && Array.isArray(definition.channels) ? definition.channels : null;
        if (!list || list.length === 0) list = inferredChannels(width);
        var kinds = [];
        var defaults = [];
        for (var i = 0; i < width; i++) {
            var c = i < list.length ? list[i] : null;
            var name = typeof c === 'string' ? c : isObject(c) ? str(c.type || c.kind || c.name) : '';
            var key = name.toLowerCase();
            kinds.push(Object.prototype.hasOwnProperty.call(CHANNEL_ALIASES, key) ? CHANNEL_ALIASES[key] : CH_OTHER);
            defaults.push(isObject(c) ? clamp(Math.round(num(c['default'], 0)), 0, 255) : 0);
        }
        return { kinds: kinds, defaults: defaults };
    }
    function positiveInt(v, fallback) {
        return typeof v === 'number' && isFinite(v) && v >= 1 ? Math.floor(v) : fallback;
    }
    // A fixture never occupies more than a universe, whatever its definition claims.
    function fixtureWidth(row, definition) {
        var width = str(row.fixture_type) === MANUAL_DIMMER_TYPE
            ? positiveInt(isObject(row.options) ? row.options.width : undefined, 1)
            : positiveInt(isObject(definition) ? definition.dmx_address_width : undefined, 1);
        return Math.min(width, DMX_CHANNELS);
    }

    // ---------------------------------------------------------------- interpreters

    // An interpreter animates the fixtures of one group: it writes r, g, b (0…1), dimmer (0…1)
    // and strobe (0…1, the strobe channel's speed) for one fixture. `s` is the step's state (beat
    // envelopes, palette, the deal's colour shift), `fx` the fixture: its group, its place in the
    // group from left to right (indexInGroup of groupSize), x across the stage (0…1), and
    // isStrobe (a strobe head without colour) / hasStrobe (has a strobe channel).
    var R = 0, G = 1, B = 2, DIM = 3, STROBE = 4;
    // After a look is rendered, `emit` adds what its channels will show (WHITE, AMBER) and, for
    // a fixture without a dimmer channel, scales the colours by the dimmer, so that blends and
    // the drop mix channel values linearly: a blend lies between the two looks on every channel.
    var WHITE = 5, AMBER = 6, LOOK_SIZE = 7;

    var BEAT_DECAY_FRACTION = 0.35;  // a pulse falls to 1/e in this part of a beat
    var BAR_PUNCH_FRACTION = 0.2;    // the downbeat punch of strobe heads, likewise
    var FLASH_DECAY_S = 0.07;        // a dimmer flash
    var STROBE_BURST_BEATS = 0.5;    // a strobe channel runs this long after its hit
    var STROBE_RATE_MIN = 0.6;       // strobe speed at silence; full speed at full level
    var FLASH_BASE = 0.08;           // the palette glow between strobe hits

    function wrap(v, n) {
        var x = v % n;
        return x < 0 ? x + n : x;
    }
    // Washes and colour looks: steady light; strobe heads, which cannot wear a colour, punch
    // the downbeat instead.
    function steadyLevel(s, fx, level, out) {
        out[DIM] = fx.isStrobe ? s.barEnvelope : level;
        out[STROBE] = 0;
    }
    function pulseLevel(s, fx, envelope, out) {
        var base = fx.isStrobe ? 0 : 0.12;
        out[DIM] = base + (1 - base) * envelope * (0.55 + 0.45 * s.low);
        out[STROBE] = 0;
    }
    // A chase head crosses its group once a bar, at least one fixture a beat; `d` is how far
    // (in fixtures) this one is behind the head, lit over a tail of `tail` fixtures.
    function chaseHead(s, fx) {
        return s.beatPosition * (fx.groupSize > 4 ? fx.groupSize / 4 : 1);
    }
    function chaseLevel(s, fx, d, tail, out) {
        var level = d >= 0 && d < tail ? 1 - d / tail : 0;
        out[DIM] = level * level * (fx.isStrobe ? 0.6 : 1);
        out[STROBE] = 0;
    }
    // A strobe hit `since` seconds ago: fixtures with a strobe channel open up and strobe (faster
    // when the music is loud) for a burst, the others flash their dimmer; colours whiten on the
    // hit and glow low in between.
    function strobeHit(s, fx, since, out) {
        var burst = since >= 0 && since < STROBE_BURST_BEATS * s.period;
        var hit = fx.hasStrobe ? (burst ? 1 : 0) : Math.exp(-Math.max(since, 0) / FLASH_DECAY_S);
        s.groupColor(fx, 0, out);
        out[R] += (1 - out[R]) * 0.7 * hit;
        out[G] += (1 - out[G]) * 0.7 * hit;
        out[B] += (1 - out[B]) * 0.7 * hit;
        var base = fx.isStrobe ? 0 : FLASH_BASE;
        out[DIM] = base + (1 - base) * hit;
        out[STROBE] = fx.hasStrobe && burst ? s.strobeRate : 0;
    }

    var INTERPRETERS = {
        blackout: { label: 'Blackout', render: function (s, fx, out) {
            out[R] = 0; out[G] = 0; out[B] = 0; out[DIM] = 0; out[STROBE] = 0;
        } },

        // Washes: the group in its dealt colour, breathing a little with the level.
        wash: { label: 'Static wash', render: function (s, fx, out) {
            s.groupColor(fx, 0, out);
            steadyLevel(s, fx, 0.85 + 0.15 * s.level, out);
        } },
        washSplit: { label: 'Split wash', render: function (s, fx, out) {
            s.groupColor(fx, fx.indexInGroup % 2, out); // neighbours in two colours
            steadyLevel(s, fx, 0.85 + 0.15 * s.level, out);
        } },
        washGradient: { label: 'Gradient wash', render: function (s, fx, out) {
            s.paletteBlend(s.colorShift + fx.x * (s.palette.length - 1), out); // graded across the stage
            steadyLevel(s, fx, 0.85 + 0.15 * s.level, out);
        } },

        // Pulses: up on the beat, falling until the next; a new colour every bar.
        pulse: { label: 'Beat pulse', render: function (s, fx, out) {
            s.groupColor(fx, s.bar, out);
            pulseLevel(s, fx, s.beatEnvelope, out);
        } },
        pulseAlternate: { label: 'Alternating pulse', render: function (s, fx, out) {
            s.groupColor(fx, s.bar, out);
            pulseLevel(s, fx, (fx.indexInGroup + s.beatIndex) % 2 === 0 ? s.beatEnvelope : 0, out);
        } },
        pulseRipple: { label: 'Ripple pulse', render: function (s, fx, out) {
            // The beat runs across the group within half a beat.
            s.groupColor(fx, s.bar, out);
            var delay = fx.groupSize > 1 ? 0.5 * s.period * fx.indexInGroup / (fx.groupSize - 1) : 0;
            var since = s.sinceBeat - delay;
            if (since < 0) since += s.period;
            pulseLevel(s, fx, Math.exp(-since / (BEAT_DECAY_FRACTION * s.period)), out);
        } },

        // Chases: a head with a tail running through the group.
        chase: { label: 'Chase', render: function (s, fx, out) {
            s.groupColor(fx, s.bar >> 1, out);
            chaseLevel(s, fx, wrap(chaseHead(s, fx) - fx.indexInGroup, fx.groupSize), 2.5, out);
        } },
        chaseReverse: { label: 'Reverse chase', render: function (s, fx, out) {
            s.groupColor(fx, s.bar >> 1, out);
            var fromRight = fx.groupSize - 1 - fx.indexInGroup;
            chaseLevel(s, fx, wrap(chaseHead(s, fx) - fromRight, fx.groupSize), 2.5, out);
        } },
        chaseBounce: { label: 'Bounce chase', render: function (s, fx, out) {
            s.groupColor(fx, s.bar >> 1, out);
            var span = fx.groupSize - 1;
            var p = span > 0 ? wrap(chaseHead(s, fx), 2 * span) : 0;
            var head = p <= span ? p : 2 * span - p;
            chaseLevel(s, fx, Math.abs(head - fx.indexInGroup), 1.5, out);
        } },
        chaseSpaced: { label: 'Spaced chase', render: function (s, fx, out) {
            // Every third fixture lit, stepping on every half beat.
            s.groupColor(fx, s.bar >> 1, out);
            chaseLevel(s, fx, wrap(s.beatPosition * 2 - fx.indexInGroup, 3), 1, out);
        } },

        // Strobes: strobe channels burst, dimmers flash.
        flash: { label: 'Strobe hits', render: function (s, fx, out) {
            strobeHit(s, fx, s.sinceFlash, out); // on the accents: downbeats, hard kicks
        } },
        flashAlternate: { label: 'Alternating strobe', render: function (s, fx, out) {
            var mine = (fx.indexInGroup + s.beatIndex) % 2 === 0;
            strobeHit(s, fx, mine ? s.sinceBeat : s.sinceBeat + s.period, out);
        } },
        flashRoll: { label: 'Strobe roll', render: function (s, fx, out) {
            // One fixture after the other, an eighth note each.
            var eighthSeconds = s.period / 2;
            var turnsAgo = wrap(s.eighth - fx.indexInGroup, fx.groupSize);
            strobeHit(s, fx, (s.beatPosition * 2 - s.eighth + turnsAgo) * eighthSeconds, out);
        } },

        // Colour looks: steady light, moving colour.
        cycle: { label: 'Colour cycle', render: function (s, fx, out) {
            var position = s.colorShift + s.beatPosition / 8 + fx.x * 0.35 + fx.group * 0.1;
            if (s.rainbowCycle) hueToRgb(position / 3, out);
            else s.paletteBlend(position, out);
            steadyLevel(s, fx, 0.7 + 0.3 * s.level, out);
        } },
        cycleSteps: { label: 'Colour steps', render: function (s, fx, out) {
            var step = fx.group + s.colorShift + s.beatIndex; // a hard cut on every beat
            if (s.rainbowCycle) hueToRgb(step / 6, out);
            else s.paletteColor(step, out);
            steadyLevel(s, fx, 0.7 + 0.3 * s.level, out);
        } },
        cycleWave: { label: 'Colour wave', render: function (s, fx, out) {
            // The palette laid across the stage, rolling one colour a bar.
            var position = s.colorShift + fx.x * s.palette.length - s.beatPosition / 4;
            if (s.rainbowCycle) hueToRgb(position / 6, out);
            else s.paletteBlend(position, out);
            steadyLevel(s, fx, 0.7 + 0.3 * s.level, out);
        } },

        sparkle: { label: 'Sparkle', render: function (s, fx, out) {
            // Each beat lights a random few, and every fixture at least once a bar.
            if (fx.sparkleBeat !== s.beatIndex) {
                fx.sparkleBeat = s.beatIndex;
                fx.sparkleOn = (fx.indexInGroup + s.beatIndex) % 4 === 0 ||
                    hash32(fx.seed, s.beatIndex) < 0.25;
            }
            s.groupColor(fx, 1, out);
            out[DIM] = fx.sparkleOn ? s.beatEnvelope : 0.05;
            out[STROBE] = 0;
        } }
    };

    function emit(fx, v) {
        var r = clamp01(v[R]), g = clamp01(v[G]), b = clamp01(v[B]);
        var dim = clamp01(v[DIM]);
        var scale = fx.hasDimmer ? 1 : dim; // without a dimmer channel the colour carries it
        v[R] = r * scale;
        v[G] = g * scale;
        v[B] = b * scale;
        v[WHITE] = (r < g ? (r < b ? r : b) : (g < b ? g : b)) * scale;
        v[AMBER] = (r < g ? r : g) * 0.5 * scale;
        v[DIM] = dim;
        v[STROBE] = clamp01(v[STROBE]);
    }

    // The look of a drop, mixed over the mode by the drop level (or fully while forced): every
    // fixture at full, white and colour alternating on the eighths, strobes for the first bar.
    function renderDropLook(s, fx, out) {
        var eighth = s.eighth;
        var white = (eighth + fx.indexInGroup) % 2 === 0;
        if (white) {
            out[R] = 1; out[G] = 1; out[B] = 1;
        } else {
            s.groupColor(fx, eighth, out);
        }
        out[DIM] = 1;
        out[STROBE] = s.dropStrobe;
    }

    // ---------------------------------------------------------------- modes

    // Each mode deals its interpreters over the groups: group g runs interpreter
    // (g + variation) mod n and starts (g + variation) colours into the palette, so a lighting
    // shift (`shiftLighting`, variation + 1) re-deals every group of every mode that lights.
    var MODES = {
        blackout: { label: 'Blackout', interpreters: ['blackout'] },
        static: { label: 'Static wash', interpreters: ['wash', 'washSplit', 'washGradient'] },
        pulse: { label: 'Beat pulse', interpreters: ['pulse', 'pulseAlternate', 'pulseRipple'] },
        chase: { label: 'Chase', interpreters: ['chase', 'chaseReverse', 'chaseBounce', 'chaseSpaced'] },
        strobe: { label: 'Strobe flash', interpreters: ['flash', 'flashAlternate', 'flashRoll'] },
        cycle: { label: 'Colour cycle', interpreters: ['cycle', 'cycleSteps', 'cycleWave'] },
        party: { label: 'Party', interpreters: ['pulse', 'chase', 'cycle', 'sparkle', 'flashAlternate'] }
    };
    var MODE_ALIASES = {
        wash: 'static', 'static-wash': 'static', static_wash: 'static', beat_pulse: 'pulse',
        'beat-pulse': 'pulse', flash: 'strobe', rainbow: 'cycle', color_cycle: 'cycle',
        colour_cycle: 'cycle', 'color-cycle': 'cycle', auto: 'party'
    };
    // Unknown modes light the room rather than leaving it dark.
    var FALLBACK_MODE = 'static';

    function builtinModeKey(key) {
        if (typeof key !== 'string') return null;
        var k = key.toLowerCase();
        if (Object.prototype.hasOwnProperty.call(MODES, k)) return k;
        if (Object.prototype.hasOwnProperty.call(MODE_ALIASES, k)) return MODE_ALIASES[k];
        return null;
    }

    // ---------------------------------------------------------------- show subset

    function copyNumber(from, key, to) {
        if (typeof from[key] === 'number' && isFinite(from[key])) to[key] = from[key];
    }
    function copyString(from, key, to) {
        if (typeof from[key] === 'string') to[key] = from[key];
    }
    // The manual dimmer a control state asks for, as the host reads it: `manual_dimmer`, else
    // the largest of `manual_fixture_dimmers`; null when neither holds a number.
    function controlManualDimmer(cs) {
        if (typeof cs.manual_dimmer === 'number' && isFinite(cs.manual_dimmer)) return clamp01(cs.manual_dimmer);
        var largest = null;
        if (isObject(cs.manual_fixture_dimmers)) {
            for (var id in cs.manual_fixture_dimmers) {
                var v = cs.manual_fixture_dimmers[id];
                if (typeof v === 'number' && isFinite(v) && (largest === null || v > largest)) largest = v;
            }
        }
        return largest === null ? null : clamp01(largest);
    }

    // The part of the active show the session needs, in a form that serialises to JSON and
    // loads again offline. Unknown keys and malformed entries are left out.
    function buildShowSnapshotSubset(activeShow, controlState) {
        var show = isObject(activeShow) ? activeShow : {};
        var control = isObject(controlState) ? controlState : {};
        var summary = isObject(show.summary) ? show.summary : {};
        var subset = {
            summary: { id: str(summary.id) || str(show.id), name: str(summary.name) || str(show.name) },
            revision: typeof show.revision === 'number' && isFinite(show.revision) ? Math.floor(show.revision) : 0,
            fixture_definitions: {},
            fixtures: [],
            lighting_modes: [],
            scene_objects: [],
            control_state: {}
        };
        var definitions = isObject(show.fixture_definitions) ? show.fixture_definitions : {};
        var fixtures = Array.isArray(show.fixtures) ? show.fixtures : [];
        for (var i = 0; i < fixtures.length; i++) {
            var row = fixtures[i];
            if (!isObject(row) || typeof row.id !== 'string' || row.id === '') continue;
            var f = { id: row.id };
            copyString(row, 'name', f);
            copyString(row, 'fixture_type', f);
            copyNumber(row, 'universe', f);
            copyNumber(row, 'address', f);
            copyString(row, 'group_name', f);
            copyNumber(row, 'x', f);
            copyNumber(row, 'y', f);
            f.is_disabled = row.is_disabled === true;
            f.options = isObject(row.options) ? JSON.parse(JSON.stringify(row.options)) : {};
            subset.fixtures.push(f);
            var type = str(row.fixture_type);
            if (type !== '' && isObject(definitions[type]) && !subset.fixture_definitions[type]) {
                var d = definitions[type];
                var def = {};
                copyString(d, 'label', def);
                copyNumber(d, 'dmx_address_width', def);
                if (Array.isArray(d.channels)) {
                    def.channels = [];
                    for (var c = 0; c < d.channels.length; c++) {
                        var ch = d.channels[c];
                        if (typeof ch === 'string') def.channels.push(ch);
                        else if (isObject(ch)) {
                            var entry = { type: str(ch.type || ch.kind || ch.name) };
                            copyNumber(ch, 'default', entry);
                            def.channels.push(entry);
                        } else def.channels.push('');
                    }
                }
                subset.fixture_definitions[type] = def;
            }
        }
        var modes = Array.isArray(show.lighting_modes) ? show.lighting_modes : [];
        for (var m = 0; m < modes.length; m++) {
            var mode = modes[m];
            if (!isObject(mode) || typeof mode.key !== 'string') continue;
            var mo = { key: mode.key };
            copyString(mode, 'id', mo);
            copyString(mode, 'label', mo);
            copyString(mode, 'core_key', mo);
            copyNumber(mode, 'order_index', mo);
            subset.lighting_modes.push(mo);
        }
        var objects = Array.isArray(show.scene_objects) ? show.scene_objects : [];
        for (var o = 0; o < objects.length; o++) {
            var so = objects[o];
            if (!isObject(so) || so.kind !== 'floor') continue;
            var floor = { kind: 'floor' };
            copyNumber(so, 'x', floor);
            copyNumber(so, 'y', floor);
            copyNumber(so, 'floor_width', floor);
            copyNumber(so, 'floor_depth', floor);
            subset.scene_objects.push(floor);
            break;
        }
        var cs = subset.control_state;
        copyString(control, 'mode', cs);
        if (typeof control.mode_to === 'string') cs.mode_to = control.mode_to;
        copyNumber(control, 'mode_lerp', cs);
        copyString(control, 'theme_name', cs);
        copyNumber(control, 'manual_dimmer', cs);
        if (isObject(control.manual_fixture_dimmers)) {
            var dimmers = {};
            for (var id in control.manual_fixture_dimmers) copyNumber(control.manual_fixture_dimmers, id, dimmers);
            cs.manual_fixture_dimmers = dimmers;
        }
        return subset;
    }

    // ---------------------------------------------------------------- RuntimeDirectorSession

    var DEFAULT_BPM = 120;

    function RuntimeDirectorSession() {
        var self = this;
        this.realized = null;
        this.director = { getRealized: function () { return self.realized; } };
        this.showSeed = 1;
        this.fixtures = [];
        this.rendered = [];
        this.groups = [];
        this.universes = [];
        this.dmx = {};
        this.fixtureOptions = {};
        this.subset = null;
        this.modes = [];
        this.modeId = 'blackout';
        this.modeTo = null;
        this.modeLerp = 0;
        this.themes = BUILTIN_THEMES.map(readTheme);
        this.themeName = DEFAULT_THEME_NAME;
        this.schemeShift = 0;
        this.schemeLabel = '';
        this.variation = 0;
        // The deal: the resolved modes and, per group, the interpreter each runs.
        this.modeKeyA = 'blackout';
        this.modeKeyB = null;
        this.dealA = [];
        this.dealB = [];
        this.manualDimmer = 1;
        this.forcedDrop = false;
        this.result = { dmx: this.dmx, fixtures: [], color_palette: [] };
        this.a = new Float64Array(LOOK_SIZE);
        this.b = new Float64Array(LOOK_SIZE);
        // Per-step state the interpreters read (kept on one object to avoid allocation).
        this.state = {
            palette: [], rainbow: false, rainbowCycle: false, colorShift: 0, level: 0, low: 0,
            period: 60 / DEFAULT_BPM, sinceBeat: 10, sinceFlash: 10, beatEnvelope: 0, barEnvelope: 0,
            beatPosition: 0, beatIndex: 0, bar: 0, eighth: 0, strobeRate: 0, dropStrobe: 0,
            paletteColor: function (i, out) {
                var p = this.palette;
                var c = p[((i % p.length) + p.length) % p.length];
                out[R] = c[0]; out[G] = c[1]; out[B] = c[2];
            },
            // The fixture's group colour in the current deal, `offset` colours on.
            groupColor: function (fx, offset, out) {
                this.paletteColor(fx.group + this.colorShift + offset, out);
            },
            paletteBlend: function (position, out) {
                var p = this.palette;
                var n = p.length;
                var x = position % n;
                if (x < 0) x += n;
                var i = x | 0;
                var f = x - i;
                var c0 = p[i % n];
                var c1 = p[(i + 1) % n];
                out[R] = c0[0] + (c1[0] - c0[0]) * f;
                out[G] = c0[1] + (c1[1] - c0[1]) * f;
                out[B] = c0[2] + (c1[2] - c0[2]) * f;
            }
        };
        this.time = 0;
        this.sinceBeat = 10;
        this.sinceDownbeat = 10;
        this.sinceFlash = 10;
        this.beatIndex = 0;
        this.beatPhase = 0;
        this.bpm = DEFAULT_BPM;
        this.dropAmount = 0;
        this.dropTime = 0;
        this.refreshPalette();
    }

    RuntimeDirectorSession.prototype.loadShow = function (subset) {
        if (!isObject(subset)) return;
        this.subset = subset;
        // Options come with the show (and from applyFixtureOptions right after it).
        this.fixtureOptions = {};
        var summary = isObject(subset.summary) ? subset.summary : {};
        this.showId = str(summary.id);
        this.showSeed = hashString(this.showId) || 1;
        this.modes = Array.isArray(subset.lighting_modes) ? subset.lighting_modes.filter(isObject) : [];
        this.buildFixtures();
        this.realized = { show_id: this.showId, name: str(summary.name), fixture_count: this.fixtures.length };
        var cs = isObject(subset.control_state) ? subset.control_state : {};
        var control = {};
        if (typeof cs.mode === 'string' && cs.mode !== '') {
            control.modeId = cs.mode;
            control.modeTo = typeof cs.mode_to === 'string' ? cs.mode_to : null;
            control.modeLerp = num(cs.mode_lerp, 0);
        }
        if (typeof cs.theme_name === 'string' && cs.theme_name !== '') control.themeName = cs.theme_name;
        var dimmer = controlManualDimmer(cs);
        if (dimmer !== null) control.manualDimmer = dimmer;
        this.applyControl(control);
    };

    RuntimeDirectorSession.prototype.buildFixtures = function () {
        var subset = isObject(this.subset) ? this.subset : {};
        var definitions = isObject(subset.fixture_definitions) ? subset.fixture_definitions : {};
        var rows = Array.isArray(subset.fixtures) ? subset.fixtures : [];
        var fixtures = [];
        var groups = [];
        var groupIndex = {};
        var universeLength = {};
        var minX = Infinity, maxX = -Infinity;
        for (var i = 0; i < rows.length; i++) {
            var row = rows[i];
            if (!isObject(row) || typeof row.id !== 'string' || row.id === '') continue;
            var options = isObject(this.fixtureOptions[row.id]) ? this.fixtureOptions[row.id]
                : isObject(row.options) ? row.options : {};
            var effective = { fixture_type: row.fixture_type, options: options };
            var type = str(row.fixture_type);
            var definition = definitions[type];
            var width = fixtureWidth(effective, definition);
            var layout = type === MANUAL_DIMMER_TYPE ? { kinds: [], defaults: [] } : readChannels(definition, width);
            if (type === MANUAL_DIMMER_TYPE) {
                for (var w = 0; w < width; w++) {
                    layout.kinds.push(CH_DIMMER);
                    layout.defaults.push(0);
                }
            }
            var universe = positiveInt(row.universe, 1);
            var address = positiveInt(row.address, 1);
            var groupName = str(row.group_name);
            if (!Object.prototype.hasOwnProperty.call(groupIndex, groupName)) {
                groupIndex[groupName] = groups.length;
                groups.push({ name: groupName, fixtures: [] });
            }
            var hasColor = layout.kinds.indexOf(CH_RED) >= 0 || layout.kinds.indexOf(CH_GREEN) >= 0 ||
                layout.kinds.indexOf(CH_BLUE) >= 0 || layout.kinds.indexOf(CH_WHITE) >= 0;
            var hasStrobe = layout.kinds.indexOf(CH_STROBE) >= 0;
            var fx = {
                id: row.id,
                name: str(row.name),
                universe: universe,
                address: address,
                width: width,
                kinds: Int32Array.from(layout.kinds),
                defaults: layout.defaults,
                hasDimmer: layout.kinds.indexOf(CH_DIMMER) >= 0,
                hasStrobe: hasStrobe,
                isStrobe: !hasColor && hasStrobe,
                disabled: row.is_disabled === true,
                lit: false,
                x: num(row.x, 0),
                y: num(row.y, 0),
                group: groupIndex[groupName],
                indexInGroup: 0,
                groupSize: 1,
                seed: hashString(row.id),
                sparkleBeat: -1,
                sparkleOn: false,
                buffer: null,
                output: { id: row.id, color: { r: 0, g: 0, b: 0 }, dimmer: 0, strobe: 0 }
            };
            fixtures.push(fx);
            groups[fx.group].fixtures.push(fx);
            if (!fx.disabled) {
                minX = Math.min(minX, fx.x);
                maxX = Math.max(maxX, fx.x);
            }
            var last = Math.min(address + width - 1, DMX_CHANNELS);
            universeLength[universe] = Math.max(universeLength[universe] || 0, last);
        }
        // Chases run left to right within each group.
        for (var g = 0; g < groups.length; g++) {
            var members = groups[g].fixtures.slice().sort(function (p, q) {
                return p.x - q.x || (p.id < q.id ? -1 : p.id > q.id ? 1 : 0);
            });
            for (var k = 0; k < members.length; k++) {
                members[k].indexInGroup = k;
                members[k].groupSize = members.length;
            }
        }
        var span = maxX - minX;
        for (var f = 0; f < fixtures.length; f++) {
            fixtures[f].x = span > 0 ? (fixtures[f].x - minX) / span : 0.5;
        }
        var numbers = Object.keys(universeLength).map(Number).sort(function (p, q) { return p - q; })
            .slice(0, MAX_UNIVERSES);
        var dmx = {};
        for (var u = 0; u < numbers.length; u++) {
            var channels = new Array(universeLength[numbers[u]]);
            for (var c = 0; c < channels.length; c++) channels[c] = 0;
            dmx[String(numbers[u])] = channels;
        }
        var rendered = [];
        var outputs = [];
        for (var r = 0; r < fixtures.length; r++) {
            var item = fixtures[r];
            item.buffer = dmx[String(item.universe)] || null;
            if (item.disabled || item.buffer === null) continue;
            item.lit = true;
            // Channels without a kind we animate keep their default value.
            for (var d = 0; d < item.width; d++) {
                var index = item.address - 1 + d;
                if (index < item.buffer.length) item.buffer[index] = item.defaults[d];
            }
            rendered.push(item);
            outputs.push(item.output);
        }
        this.fixtures = fixtures;
        this.rendered = rendered;
        this.groups = groups;
        this.universes = numbers;
        this.dmx = dmx;
        this.result.dmx = dmx;
        this.result.fixtures = outputs;
        this.deal();
    };

    RuntimeDirectorSession.prototype.applyFixtureOptions = function (list) {
        if (!Array.isArray(list)) return;
        for (var i = 0; i < list.length; i++) {
            var entry = list[i];
            if (!isObject(entry) || typeof entry.id !== 'string') continue;
            this.fixtureOptions[entry.id] = isObject(entry.options) ? entry.options : {};
        }
        if (this.realized) {
            this.buildFixtures();
            this.realized.fixture_count = this.fixtures.length;
        }
    };

    RuntimeDirectorSession.prototype.applyControl = function (control) {
        if (!isObject(control)) return;
        if (Array.isArray(control.themes)) {
            var themes = [];
            for (var i = 0; i < control.themes.length; i++) {
                var t = readTheme(control.themes[i]);
                if (t) themes.push(t);
            }
            if (themes.length > 0) this.themes = themes;
        }
        if (typeof control.modeId === 'string' && control.modeId !== '') {
            this.modeId = control.modeId;
            this.modeTo = typeof control.modeTo === 'string' && control.modeTo !== '' ? control.modeTo : null;
            this.modeLerp = clamp01(num(control.modeLerp, 0));
        }
        if (typeof control.themeName === 'string' && control.themeName !== '') {
            if (control.themeName !== this.themeName) this.schemeShift = 0;
            this.themeName = control.themeName;
        }
        if (typeof control.manualDimmer === 'number') this.manualDimmer = clamp01(control.manualDimmer);
        this.refreshPalette();
        this.deal();
    };

    RuntimeDirectorSession.prototype.setForcedDrop = function (on) {
        this.forcedDrop = on === true;
    };

    // Re-deals the interpreters and the colours over the groups (see MODES).
    RuntimeDirectorSession.prototype.shiftLighting = function () {
        this.variation += 1;
        this.deal();
    };
    // Steps to the theme's next colour scheme (see RAINBOW_PALETTE for the order).
    RuntimeDirectorSession.prototype.shiftColorScheme = function () {
        this.schemeShift += 1;
        this.refreshPalette();
    };

    RuntimeDirectorSession.prototype.currentTheme = function () {
        for (var i = 0; i < this.themes.length; i++) {
            if (this.themes[i].name === this.themeName) return this.themes[i];
        }
        for (var j = 0; j < this.themes.length; j++) {
            if (this.themes[j].name === DEFAULT_THEME_NAME) return this.themes[j];
        }
        return this.themes[0] || readTheme(BUILTIN_THEMES[0]);
    };
    RuntimeDirectorSession.prototype.refreshPalette = function () {
        var theme = this.currentTheme();
        var scheme = this.schemeShift % schemeCount(theme);
        var rainbow = scheme === theme.palettes.length;
        var palette = rainbow ? RAINBOW_PALETTE : theme.palettes[scheme];
        var s = this.state;
        s.palette = palette;
        s.rainbow = rainbow;
        s.rainbowCycle = rainbow || theme.alwaysRainbow;
        this.schemeLabel = theme.name +
            (rainbow ? ' rainbow' : scheme === 0 ? ' palette' : ' palette ' + (scheme + 1));
        var list = [];
        for (var i = 0; i < palette.length; i++) list.push([palette[i][0], palette[i][1], palette[i][2]]);
        this.result.color_palette = list;
    };

    // Resolves a mode id (a mode record's key or id, or a built-in key) to a built-in mode.
    RuntimeDirectorSession.prototype.resolveMode = function (id) {
        if (typeof id !== 'string' || id === '') return null;
        for (var i = 0; i < this.modes.length; i++) {
            var m = this.modes[i];
            if (m.key === id || m.id === id) {
                return builtinModeKey(m.core_key) || builtinModeKey(m.key) || FALLBACK_MODE;
            }
        }
        return builtinModeKey(id) || FALLBACK_MODE;
    };
    // Deals the interpreters of the mode and of the blend target over the groups (see MODES);
    // runs when the mode, the show or the variation changes, not per step.
    RuntimeDirectorSession.prototype.deal = function () {
        this.modeKeyA = this.resolveMode(this.modeId) || 'blackout';
        this.modeKeyB = this.modeTo !== null ? this.resolveMode(this.modeTo) : null;
        this.dealA = this.dealFor(this.modeKeyA);
        this.dealB = this.modeKeyB ? this.dealFor(this.modeKeyB) : this.dealA;
        this.state.colorShift = this.variation;
    };
    RuntimeDirectorSession.prototype.dealFor = function (modeKey) {
        var list = MODES[modeKey].interpreters;
        var dealt = [];
        for (var g = 0; g < this.groups.length; g++) {
            dealt.push(INTERPRETERS[list[(g + this.variation) % list.length]]);
        }
        return dealt;
    };

    RuntimeDirectorSession.prototype.step = function (frame, dt) {
        var f = isObject(frame) ? frame : {};
        var step = hopSeconds(dt);
        var s = this.state;
        this.time += step;

        var bpm = num(f.bpm, 0);
        if (bpm >= 40 && bpm <= 250) this.bpm = bpm;
        var period = 60 / this.bpm;
        this.sinceBeat += step;
        this.sinceDownbeat += step;
        this.sinceFlash += step;
        if (f.beat === true) {
            this.sinceBeat = 0;
            this.beatIndex += 1;
            this.beatPhase = 0;
            if (f.downbeat === true) this.sinceDownbeat = 0;
            var accent = num(f.onset, 0) > 2 || num(f.low, 0) > 0.8 || f.downbeat === true;
            if (accent) this.sinceFlash = 0;
        } else {
            this.beatPhase = Math.min(this.beatPhase + step / period, 1.999);
        }
        var drop = Math.max(num(f.drop, 0), this.forcedDrop ? 1 : 0);
        var dropTarget = clamp01(drop);
        this.dropAmount += (dropTarget - this.dropAmount) * (dropTarget > this.dropAmount ? 1 : follow(step, 0.4));
        this.dropTime = drop > 0 ? this.dropTime + step : 0;

        s.level = clamp01(num(f.all, 0));
        s.low = clamp01(num(f.low, 0));
        s.period = period;
        s.sinceBeat = this.sinceBeat;
        s.sinceFlash = this.sinceFlash;
        s.beatEnvelope = Math.exp(-this.sinceBeat / (BEAT_DECAY_FRACTION * period));
        s.barEnvelope = Math.exp(-this.sinceDownbeat / (BAR_PUNCH_FRACTION * period));
        s.beatIndex = this.beatIndex;
        s.beatPosition = this.beatIndex + Math.min(this.beatPhase, 1);
        s.bar = Math.floor(this.beatIndex / 4);
        s.eighth = Math.floor(s.beatPosition * 2);
        s.strobeRate = STROBE_RATE_MIN + (1 - STROBE_RATE_MIN) * s.level;
        // Strobe on for the first bars of a drop, fast, then released.
        s.dropStrobe = this.dropTime < 4 * period && this.dropAmount > 0.5 ? 0.9 : 0;

        var lerp = this.modeKeyB ? this.modeLerp : 0;
        var a = this.a, b = this.b;
        var master = this.manualDimmer;
        var list = this.rendered;
        var dealA = this.dealA, dealB = this.dealB;
        var dark = this.modeKeyA === 'blackout' && lerp === 0 && this.dropAmount <= 0.001;
        for (var i = 0; i < list.length; i++) {
            var fx = list[i];
            if (lerp < 1) {
                dealA[fx.group].render(s, fx, a);
                emit(fx, a);
            }
            if (lerp > 0) {
                dealB[fx.group].render(s, fx, b);
                emit(fx, b);
                if (lerp >= 1) {
                    for (var k0 = 0; k0 < LOOK_SIZE; k0++) a[k0] = b[k0];
                } else {
                    for (var k = 0; k < LOOK_SIZE; k++) a[k] += (b[k] - a[k]) * lerp;
                }
            }
            if (this.dropAmount > 0.001) {
                renderDropLook(s, fx, b);
                emit(fx, b);
                for (var k2 = 0; k2 < LOOK_SIZE; k2++) a[k2] += (b[k2] - a[k2]) * this.dropAmount;
            }
            this.write(fx, a, master, dark);
        }
        return this.result;
    };

    // Writes one fixture's emitted look into its channels, the manual dimmer scaling the
    // dimmer (or, without a dimmer channel, the colours). `dark` (a blackout) also zeroes the
    // channels that otherwise hold their default (zoom, macros).
    RuntimeDirectorSession.prototype.write = function (fx, v, master, dark) {
        var dim = v[DIM] * master;
        var scale = fx.hasDimmer ? 1 : master;
        var strobe = v[STROBE];
        var buffer = fx.buffer;
        var base = fx.address - 1;
        var kinds = fx.kinds;
        for (var i = 0; i < kinds.length; i++) {
            var index = base + i;
            if (index >= buffer.length) break;
            var value;
            switch (kinds[i]) {
            case CH_DIMMER: value = dim; break;
            case CH_RED: value = v[R] * scale; break;
            case CH_GREEN: value = v[G] * scale; break;
            case CH_BLUE: value = v[B] * scale; break;
            case CH_WHITE: value = v[WHITE] * scale; break;
            case CH_AMBER: value = v[AMBER] * scale; break;
            case CH_STROBE: value = dim > 0 ? strobe : 0; break;
            default:
                buffer[index] = dark ? 0 : fx.defaults[i];
                continue;
            }
            buffer[index] = (value * 255 + 0.5) | 0;
        }
        // The plot shows colour and dimmer apart, as for a fixture with a dimmer channel.
        var unscale = fx.hasDimmer || !(v[DIM] > 0) ? 1 : 1 / v[DIM];
        var out = fx.output;
        out.color.r = clamp01(v[R] * unscale);
        out.color.g = clamp01(v[G] * unscale);
        out.color.b = clamp01(v[B] * unscale);
        out.dimmer = (dim * 255 + 0.5) | 0;
        out.strobe = (strobe * 255 + 0.5) | 0;
    };

    // The current deal as an interpretation tree: per group, the interpreter of the mode
    // ("Animation"), of the blend target while blending ("Blend") and the colours ("Color").
    RuntimeDirectorSession.prototype.toInterpretationPayload = function () {
        var theme = this.currentTheme();
        var palette = this.state.palette;
        var blending = this.modeKeyB !== null;
        var lights = this.modeKeyA !== 'blackout' || (blending && this.modeKeyB !== 'blackout');
        var children = [];
        for (var g = 0; g < this.groups.length; g++) {
            var group = this.groups[g];
            var ids = [];
            for (var i = 0; i < group.fixtures.length; i++) {
                if (group.fixtures[i].lit) ids.push(group.fixtures[i].id);
            }
            if (ids.length === 0) continue;
            var label = group.name === '' ? 'ungrouped' : group.name;
            var fixtureLabel = label + ' (' + ids.length + ')';
            var nodes = [{ kind: 'interpreter', label: this.dealA[g].label, category: 'Animation',
                           fixture_label: fixtureLabel, fixtures: ids }];
            if (blending) {
                nodes.push({ kind: 'interpreter', label: this.dealB[g].label, category: 'Blend',
                             fixture_label: fixtureLabel, fixtures: ids.slice() });
            }
            if (lights) {
                var colour = wrap(g + this.variation, palette.length) + 1;
                nodes.push({ kind: 'interpreter', label: this.schemeLabel + ', colour ' + colour,
                             category: 'Color', fixture_label: fixtureLabel, fixtures: ids.slice() });
            }
            children.push({ kind: 'group', label: label, children: nodes });
        }
        return {
            tree: { mode: this.modeId, children: children },
            mode_to: this.modeTo,
            mode_lerp: this.modeLerp,
            theme_name: theme.name,
            color_scheme: this.schemeShift % schemeCount(theme),
            variation: this.variation
        };
    };

    return {
        AdaptiveDecibelWindow: AdaptiveDecibelWindow,
        AdaptiveBandNormalizer: AdaptiveBandNormalizer,
        DropSignalDetector: DropSignalDetector,
        BeatTracker: BeatTracker,
        RuntimeDirectorSession: RuntimeDirectorSession,
        buildShowSnapshotSubset: buildShowSnapshotSubset,
        MODES: MODES
    };
})();
