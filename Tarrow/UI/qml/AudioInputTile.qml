import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Which audio input the bridge listens to.
Tile {
    id: tile
    objectName: "audioInputTile"
    title: "Audio input"

    readonly property var input: Bridge.audioInput

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing
        Label {
            objectName: "connectionsAudioInputName"
            Layout.fillWidth: true
            text: tile.input.audioInputDisplayName
            color: Theme.text
            font.pixelSize: Theme.fontLarge
            font.weight: Font.DemiBold
            elide: Text.ElideRight
        }
        ComboBox {
            objectName: "connectionsAudioInputPicker"
            Layout.fillWidth: true
            model: Bridge.audioInputDevices
            textRole: "name"
            valueRole: "uid"
            displayText: tile.input.audioInputDisplayName
            currentIndex: indexOfValue(tile.input.activeAudioDeviceUID)
            onActivated: Bridge.selectAudioInputDevice(currentValue)
        }
        CheckBox {
            objectName: "connectionsPreferMicrophone"
            text: "Prefer microphone"
            checked: tile.input.preferMicrophoneOverUSB
            onToggled: tile.input.preferMicrophoneOverUSB = checked
        }
        Item { Layout.fillHeight: true }
    }
}
