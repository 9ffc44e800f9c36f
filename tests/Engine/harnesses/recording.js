// A harness whose objects record what the host hands them. Hop levels steer it:
//   low  -> drop level returned by the detector
//   high -> the beat tracker's frame beats when > 0
//   mid  -> the frame is a downbeat when > 0
//   all  -> the normaliser returns nothing when < -200
// The session's interpretation payload returns the call log, and the show's "interpretationTree"
// as its "tree". A show with "stepPalette" returns
// the step's number and dt as its colour palette: [[steps, dt, 0]]. A step given a frame with
// "throw" throws, one with "spin" never returns; so does loading a show named "Spins". One with
// "throwLong": n throws a string of n two-byte characters.
var log = [];
function record(name, value) { log.push([name, value]); }

var BridgeEngine = {
  AdaptiveDecibelWindow: function () {
    this.update = function (bands, dt) {
      record("window", dt);
      bands.gained = true;
      return bands;
    };
  },
  AdaptiveBandNormalizer: function () {
    this.update = function (bands, clock) {
      if (bands.all < -200) return undefined;
      return { low: bands.low, mid: bands.mid, high: bands.high, all: bands.all,
               sustained_low: bands.onset, low_dominance: bands.low_dominance,
               gained: bands.gained };
    };
  },
  DropSignalDetector: function () {
    this.armed = false;
    this.update = function (input, dt) {
      record("detector", [input.freq_low, input.sustained_low, input.low_dominance, dt]);
      this.armed = input.sustained_low > 0;
      return input.freq_low;
    };
    this.isArmed = function () { return this.armed; };
  },
  BeatTracker: function () {
    this.count = 0;
    this.update = function (bands, dt) {
      record("tracker", [bands.drop, dt]);
      var beat = bands.high > 0;
      if (beat) this.count += 1;
      var frame = { bpm: 128, beat_count: this.count, beat: beat, beat_confidence: 0.75,
                    downbeat: bands.mid > 0, drop: 0, gained: bands.gained };
      frame.extend = function (extra) { this.drop = extra.drop; };
      frame.get = function (key) { return key === "drop" ? this.drop : undefined; };
      frame.toJson = function () { return JSON.parse(JSON.stringify(this)); };
      return frame;
    };
  },
  RuntimeDirectorSession: function () {
    var self = this;
    this.show = null;
    this.nextResult = null;
    this.steps = 0;
    this.director = { getRealized: function () { return self.show; } };
    this.loadShow = function (subset) {
      record("loadShow", subset);
      if (subset && subset.name === "Spins") for (;;) {}
      self.show = subset;
    };
    this.applyControl = function (control) { record("applyControl", control); };
    this.applyFixtureOptions = function (list) { record("applyFixtureOptions", list); };
    this.setForcedDrop = function (on) { record("setForcedDrop", on); };
    this.shiftLighting = function () { record("shiftLighting", arguments.length); };
    this.shiftColorScheme = function () {};
    this.toInterpretationPayload = function () {
      return { log: log, now: performance.now(), tree: self.show && self.show.interpretationTree };
    };
    this.step = function (frame, dt) {
      record("step", [frame, dt]);
      self.steps += 1;
      if (frame && frame.throw) throw new Error("step exploded");
      if (frame && frame.throwLong) throw "é".repeat(frame.throwLong);
      if (frame && frame.spin) for (;;) {}
      if (self.show && self.show.stepPalette) {
        var result = JSON.parse(JSON.stringify(self.show.result));
        result.color_palette = [[self.steps, dt, 0]];
        return result;
      }
      return self.show ? self.show.result : undefined;
    };
  },
  buildShowSnapshotSubset: function (activeShow, controlState) {
    record("build", [activeShow.name, controlState]);
    return { name: activeShow.name, fixtures: activeShow.fixtures || [],
             result: activeShow.result, stepPalette: activeShow.stepPalette };
  }
};
