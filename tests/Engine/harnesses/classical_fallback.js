// Only the older tracker name; no window, no detector, no session.
var BridgeEngine = {
  ClassicalBeatTracker: function () {
    this.update = function (bands, dt) {
      var frame = { bpm: 99, beat_count: 3.9, beat: true, beat_confidence: 1, downbeat: false };
      frame.extend = function () {};
      frame.get = function () { return NaN; };
      frame.toJson = function () { return { tracker: "classical", drop: bands.drop }; };
      return frame;
    };
  },
  AdaptiveBandNormalizer: function () {
    this.update = function (bands) { return { low: bands.low, mid: 0, high: 0, all: 0 }; };
  }
};
