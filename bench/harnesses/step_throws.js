// Appended to the development engine: after its first 120 steps (two seconds) every step throws.
// For scripts/bench --fault throw.
(function () {
  var Session = BridgeEngine.RuntimeDirectorSession;
  var steps = 0;
  BridgeEngine.RuntimeDirectorSession = function () {
    var session = new Session();
    var step = session.step;
    session.step = function (frame, dt) {
      steps += 1;
      if (steps > 120) throw new Error("injected step failure");
      return step.call(session, frame, dt);
    };
    return session;
  };
})();
