import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window
import Kelvo.Model
import Kelvo.UI

ApplicationWindow {
    id: window
    objectName: "mainWindow"
    title: "Kelvo"
    width: 1280
    height: 800
    minimumWidth: 960
    minimumHeight: 600
    visible: false
    color: Theme.window
    font.family: Theme.fontFamily
    font.pixelSize: Theme.fontBody
    palette {
        window: Theme.window
        windowText: Theme.text
        base: Theme.tile
        alternateBase: Theme.tileBorder
        text: Theme.text
        button: Theme.tileBorder
        buttonText: Theme.text
        brightText: Theme.text
        highlight: Theme.accent
        highlightedText: Theme.window
        light: Theme.tileBorder
        midlight: Theme.tileBorder
        mid: Theme.tile
        dark: Theme.sidebar
        shadow: Theme.sidebar
        placeholderText: Theme.textDim
        toolTipBase: Theme.tile
        toolTipText: Theme.text
    }

    // The screens of the side navigation, each loaded from "<name>Screen.qml".
    readonly property var screens: [
        { name: "Live", title: "Live" },
        { name: "Desk", title: "Desk" },
        { name: "Stage", title: "Stage" },
        { name: "Connections", title: "Connections" },
        { name: "Interpretation", title: "Interpretation" }
    ]
    property string currentScreen: "Live"

    menuBar: MenuBar {
        objectName: "menuBar"
        Menu {
            title: "Kelvo"
            MenuItem {
                objectName: "checkForUpdatesCommand"
                text: "Check for Updates…"
                onTriggered: Bridge.checkForUpdates()
            }
            MenuSeparator {}
            MenuItem {
                objectName: "quitCommand"
                text: "Quit Kelvo"
                onTriggered: window.close()
            }
        }
        Menu {
            title: "Show"
            MenuItem {
                objectName: "forceDropCommand"
                text: "Force Drop"
                onTriggered: Bridge.triggerMenuDrop()
            }
            MenuItem {
                objectName: "recordCommand"
                text: Bridge.recording.isRecording ? "Stop Recording" : "Start Recording"
                onTriggered: Bridge.toggleAudioRecording()
            }
            MenuItem {
                objectName: "editShowCommand"
                // Re-read on every show change: the address names the selected show.
                readonly property url editorURL: Bridge.selectedShowId, Bridge.showEditorURL()
                text: "Edit Show in Browser"
                enabled: editorURL.toString().length > 0
                onTriggered: Qt.openUrlExternally(editorURL)
            }
            MenuItem {
                objectName: "dropDiagnosticsCommand"
                text: "Drop Diagnostics"
                // The panel belongs to the Live screen: it is shown there.
                onTriggered: {
                    window.currentScreen = "Live"
                    Bridge.showingDropDiagnostics = true
                }
            }
        }
        Menu {
            title: "View"
            Repeater {
                model: window.screens
                MenuItem {
                    required property var modelData
                    required property int index
                    text: modelData.title
                    onTriggered: window.currentScreen = modelData.name
                }
            }
        }
    }

    Shortcut {
        sequences: [StandardKey.Quit]
        onActivated: window.close()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        UpdateBanner {
            Layout.fillWidth: true
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 0

            Rectangle {
                objectName: "sideNavigation"
                Layout.fillHeight: true
                Layout.preferredWidth: Theme.sidebarWidth
                color: Theme.sidebar

                Column {
                    anchors.fill: parent
                    anchors.topMargin: Theme.padding
                    spacing: 4
                    Repeater {
                        model: window.screens
                        ItemDelegate {
                            required property var modelData
                            objectName: "nav" + modelData.name
                            width: parent.width
                            height: 52
                            highlighted: window.currentScreen === modelData.name
                            text: modelData.title
                            font.pixelSize: Theme.fontTitle
                            onClicked: window.currentScreen = modelData.name
                        }
                    }
                }
            }

            Loader {
                id: screenLoader
                objectName: "screenLoader"
                Layout.fillWidth: true
                Layout.fillHeight: true
                source: window.currentScreen + "Screen.qml"
                asynchronous: false
            }
        }

        Rectangle {
            objectName: "statusLine"
            Layout.fillWidth: true
            Layout.preferredHeight: 36
            color: Theme.sidebar
            visible: statusText.text.length > 0
            Label {
                id: statusText
                objectName: "statusMessage"
                anchors.fill: parent
                anchors.leftMargin: Theme.padding
                anchors.rightMargin: Theme.padding
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
                color: Theme.text
                text: Bridge.statusMessage
            }
        }
    }
}
