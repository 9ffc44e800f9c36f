import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

// Shown while the cloud offers a newer version.
Rectangle {
    objectName: "updateBanner"
    visible: Bridge.appUpdateDownloadURL !== undefined && Bridge.appUpdateDownloadURL !== null
    implicitHeight: visible ? 44 : 0
    color: Theme.accent

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: Theme.padding
        anchors.rightMargin: Theme.padding
        Label {
            Layout.fillWidth: true
            color: Theme.window
            font.pixelSize: Theme.fontBody
            font.weight: Font.DemiBold
            text: Texts.appOutOfDate
            elide: Text.ElideRight
        }
        Button {
            objectName: "updateDownloadButton"
            text: Texts.downloadNewerVersion
            onClicked: Qt.openUrlExternally(Bridge.appUpdateDownloadURL)
        }
    }
}
