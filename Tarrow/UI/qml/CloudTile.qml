import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// The cloud link: its state, whose account this bridge is linked to, and the account commands.
Tile {
    id: tile
    objectName: "cloudTile"
    title: "Cloud"

    readonly property var session: Bridge.sessionInfo
    readonly property bool linked: Bridge.connectionStatus === "connected"
                                   || Bridge.connectionStatus === "reconnecting"
    readonly property url editorURL: Bridge.selectedShowId, Bridge.showEditorURL()

    function statusColour(status) {
        switch (status) {
        case "connected": return Theme.good;
        case "pairing":
        case "reconnecting": return Theme.warning;
        default: return Theme.textDim;
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        RowLayout {
            spacing: Theme.spacing
            Rectangle {
                width: 14; height: 14; radius: 7
                color: tile.statusColour(Bridge.connectionStatus)
            }
            Label {
                objectName: "cloudStatus"
                text: Bridge.connectionStatus
                color: Theme.text
                font.pixelSize: Theme.fontLarge
                font.weight: Font.DemiBold
            }
        }
        Label {
            objectName: "cloudAccount"
            Layout.fillWidth: true
            visible: text.length > 0
            text: {
                const s = tile.session;
                if (!s)
                    return "";
                const who = s.displayName || s.accountName || "";
                return [who, s.orgName || "", s.deviceName || ""].filter(t => t.length > 0).join(" · ");
            }
            color: Theme.text
            elide: Text.ElideRight
        }
        Label {
            objectName: "cloudServer"
            Layout.fillWidth: true
            text: Bridge.serverURLString
            color: Theme.textDim
            font.pixelSize: Theme.fontSmall
            elide: Text.ElideMiddle
        }
        Item { Layout.fillHeight: true }
        Flow {
            Layout.fillWidth: true
            spacing: Theme.spacing
            ChoiceButton {
                objectName: "logInButton"
                text: Texts.logIn
                visible: Bridge.connectionStatus !== "connected"
                chosen: true
                onClicked: Bridge.startPairing()
            }
            ChoiceButton {
                objectName: "signOutButton"
                text: Texts.signOut
                visible: tile.linked
                onClicked: Bridge.reauthenticate()
            }
            ChoiceButton {
                objectName: "editShowButton"
                text: Texts.editShowInBrowser
                enabled: tile.editorURL.toString().length > 0
                onClicked: Qt.openUrlExternally(tile.editorURL)
            }
        }
    }
}
