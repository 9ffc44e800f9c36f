var BridgeEngine = { BeatTracker: function () { throw new TypeError("tracker broken"); } };
throw new Error("harness failed half way");
