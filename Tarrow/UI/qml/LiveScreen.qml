import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Everything an operator watches and touches during a show, on one screen.
Rectangle {
    objectName: "liveScreen"
    color: Theme.window

    GridLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        columns: 3
        rowSpacing: Theme.spacing
        columnSpacing: Theme.spacing

        MicrophoneTile {
            Layout.columnSpan: 2
            Layout.preferredWidth: 2
            Layout.preferredHeight: 1
        }
        TempoTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
        LightingModeTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
        ColourSchemeTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
        DropTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
    }

    DropDiagnosticsPanel {}
}
