// Minimal engine for timing the host: a classical chain and a session whose step returns
// eight full universes that change every frame.
var BridgeEngine = (function () {
  function Window() { this.update = function (b) { return b; }; }
  function Normalizer() {
    this.update = function (b) {
      return { low: (b.low + 120) / 120, mid: (b.mid + 120) / 120, high: (b.high + 120) / 120,
               all: (b.all + 120) / 120, sustained_low: 0.5, low_dominance: b.low_dominance };
    };
  }
  function Detector() {
    this.update = function () { return 0; };
    this.isArmed = function () { return false; };
  }
  function Tracker() {
    var count = 0;
    this.update = function (bands) {
      count += 1;
      var frame = { bpm: 124, beat_count: count, beat: count % 23 === 0, beat_confidence: 0.8,
                    downbeat: false, drop: 0 };
      frame.extend = function (x) { this.drop = x.drop; };
      frame.get = function (k) { return this[k]; };
      frame.toJson = function () {
        return { bpm: this.bpm, beat_count: this.beat_count, beat: this.beat,
                 beat_confidence: this.beat_confidence, downbeat: this.downbeat, drop: this.drop,
                 low: bands.low, mid: bands.mid, high: bands.high };
      };
      return frame;
    };
  }
  function Session() {
    var universes = {};
    for (var u = 1; u <= 8; u++) universes[u] = new Array(512).fill(0);
    var frameCount = 0;
    this.director = { getRealized: function () { return {}; } };
    this.loadShow = function () {};
    this.step = function (frame, dt) {
      frameCount += 1;
      for (var u = 1; u <= 8; u++) {
        var channels = universes[u];
        for (var c = 0; c < 512; c++) channels[c] = (c * 7 + frameCount * u) & 255;
      }
      return { dmx: universes, fixtures: [], color_palette: [[1, 0, 0]] };
    };
  }
  return { AdaptiveDecibelWindow: Window, AdaptiveBandNormalizer: Normalizer,
           DropSignalDetector: Detector, BeatTracker: Tracker, RuntimeDirectorSession: Session,
           buildShowSnapshotSubset: function (show) { return show; } };
})();
