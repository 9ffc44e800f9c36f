import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Where the bridge's links live: the cloud account, Art-Net, the Enttec widget and the audio input.
Rectangle {
    objectName: "connectionsScreen"
    color: Theme.window

    GridLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        columns: 2
        rowSpacing: Theme.spacing
        columnSpacing: Theme.spacing

        CloudTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
        AudioInputTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 1
        }
        ArtNetTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 2
        }
        EnttecTile {
            Layout.preferredWidth: 1
            Layout.preferredHeight: 2
        }
    }
}
