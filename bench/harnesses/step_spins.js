// Appended to the development engine: after its first 120 steps (two seconds) every step spins
// forever. For scripts/bench --fault spin and the bridge's end-to-end test.
(function () {
  var Session = BridgeEngine.RuntimeDirectorSession;
  var steps = 0;
  BridgeEngine.RuntimeDirectorSession = function () {
    var session = new Session();
    var step = session.step;
    session.step = function (frame, dt) {
      steps += 1;
      if (steps > 120) for (;;) {}
      return step.call(session, frame, dt);
    };
    return session;
  };
})();
