// For scripts/bench: lights universe 1 channel 1 fully while the hop's overall level is above -100 dB (silence reads -120 dB), so the time
// from a sound to the packet that shows it measures the bridge's own pipeline.
var BridgeEngine = (function () {
  function Normalizer() {
    this.update = function (b) { return { low: 0, mid: 0, high: 0, all: b.all, sustained_low: 0, low_dominance: 0 }; };
  }
  function Tracker() {
    this.update = function (bands) {
      var frame = { bpm: 0, beat_count: 0, beat: false, beat_confidence: 0, downbeat: false,
                    level: bands.all };
      frame.extend = function () {};
      frame.get = function () { return 0; };
      frame.toJson = function () { return { level: this.level }; };
      return frame;
    };
  }
  function Session() {
    var channels = [0];
    this.director = { getRealized: function () { return {}; } };
    this.loadShow = function () {};
    this.step = function (frame) {
      channels[0] = frame.level > -100 ? 255 : 0;
      return { dmx: { 1: channels } };
    };
  }
  return { AdaptiveBandNormalizer: Normalizer, BeatTracker: Tracker,
           RuntimeDirectorSession: Session };
})();
