import QtQuick
import Kelvo.Model

// The live low/mid/high trace. Repaints only when the model publishes a new trace, and the scene
// graph folds repaints into display frames.
BandTraceItem {
    trace: Bridge.micTrace
    lowColor: Theme.low
    midColor: Theme.mid
    highColor: Theme.high
}
