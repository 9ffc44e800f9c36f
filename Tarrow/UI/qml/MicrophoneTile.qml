import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Tile {
    id: tile
    objectName: "microphoneTile"
    title: "Microphone"

    readonly property var recording: Bridge.recording
    readonly property var input: Bridge.audioInput

    // Elapsed time of the running recording, counted on screen once a second.
    property string elapsed: ""
    function formatElapsed() {
        if (!recording.isRecording || isNaN(recording.startedAt.getTime())) {
            elapsed = "";
            return;
        }
        const seconds = Math.max(0, Math.floor((Date.now() - recording.startedAt.getTime()) / 1000));
        const pad = n => (n < 10 ? "0" : "") + n;
        elapsed = pad(Math.floor(seconds / 3600)) + ":" + pad(Math.floor(seconds / 60) % 60) + ":"
                + pad(seconds % 60);
    }
    Timer {
        interval: 1000
        repeat: true
        running: tile.recording.isRecording
        triggeredOnStart: true
        onTriggered: tile.formatElapsed()
        onRunningChanged: tile.formatElapsed()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        BandTrace {
            objectName: "micTrace"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 80
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            Repeater {
                model: [["Low", Theme.low], ["Mid", Theme.mid], ["High", Theme.high]]
                Label {
                    required property var modelData
                    text: "● " + modelData[0]
                    color: modelData[1]
                    font.pixelSize: Theme.fontSmall
                }
            }
            Item { Layout.fillWidth: true }
            Label {
                objectName: "audioInputName"
                text: tile.input.audioInputDisplayName
                color: Theme.text
                font.pixelSize: Theme.fontBody
                font.weight: Font.DemiBold
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            ComboBox {
                id: picker
                objectName: "audioInputPicker"
                Layout.fillWidth: true
                model: Bridge.audioInputDevices
                textRole: "name"
                valueRole: "uid"
                displayText: tile.input.audioInputDisplayName
                Binding on currentIndex {
                    value: picker.indexOfValue(tile.input.activeAudioDeviceUID)
                }
                onActivated: Bridge.selectAudioInputDevice(currentValue)
            }
            CheckBox {
                objectName: "preferMicrophone"
                text: "Prefer microphone"
                Binding on checked {
                    value: tile.input.preferMicrophoneOverUSB
                }
                onToggled: tile.input.preferMicrophoneOverUSB = checked
            }
        }

        RowLayout {
            objectName: "recordingTile"
            Layout.fillWidth: true
            spacing: Theme.spacing
            Button {
                id: recordButton
                objectName: "recordButton"
                text: tile.recording.isRecording ? "■ Stop" : "● Record"
                font.pixelSize: Theme.fontBody
                palette.button: tile.recording.isRecording ? Theme.danger : Theme.tileBorder
                palette.buttonText: Theme.text
                onClicked: Bridge.toggleAudioRecording()
                ToolTip.visible: hovered
                ToolTip.text: tile.recording.isRecording ? Texts.stopRecordingHelp : Texts.recordHelp
            }
            Label {
                objectName: "recordingElapsed"
                visible: tile.recording.isRecording
                text: tile.elapsed
                color: Theme.danger
                font.pixelSize: Theme.fontTitle
            }
            Label {
                objectName: "recordingMessage"
                Layout.fillWidth: true
                text: tile.recording.errorMessage.length > 0 ? tile.recording.errorMessage
                                                             : tile.recording.isRecording ? Texts.recordHelp
                                                                                          : tile.recording.message
                color: tile.recording.errorMessage.length > 0 ? Theme.danger : Theme.textDim
                font.pixelSize: Theme.fontSmall
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
            }
        }
    }
}
